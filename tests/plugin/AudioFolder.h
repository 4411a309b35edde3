#pragma once

// A folder of audio files that a test writes with libsndfile, for the tests of the local tracks
// and of the publishing target.

#include "framework/data/Url.h"
#include "framework/services/AudioServices.h"
#include "plugin/catalogue/LocalTrack.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace PluginTest {

using namespace KVX;

/// A folder of audio files that the test writes with libsndfile, removed afterwards.
class AudioFolder : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(RegisterAudioFileClass(), kResultOk);
        char pattern[] = "/tmp/sorvel-audio-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        folder_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    /// Writes one second of a quiet tone and returns the file's URL.
    Url write(const std::string& name, int format, int sampleRate = 44100, int channels = 2)
    {
        std::string path = folder_ + "/" + name;
        SF_INFO info{};
        info.samplerate = sampleRate;
        info.channels = channels;
        info.format = format;
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        EXPECT_NE(file, nullptr) << sf_strerror(nullptr) << " for " << name;
        if (file)
        {
            std::vector<short> frames(static_cast<size_t>(sampleRate * channels), 1000);
            sf_write_short(file, frames.data(), static_cast<sf_count_t>(frames.size()));
            sf_close(file);
        }
        return Url::fromNativePath(String(path));
    }
    Url writeBytes(const std::string& name, const std::string& bytes)
    {
        std::string path = folder_ + "/" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        return Url::fromNativePath(String(path));
    }
    bool compatible(const Url& url) { return !Sorvel::LocalTrack::createFromFile(url)->incompatible; }

    std::string folder_;
};

} // namespace PluginTest
