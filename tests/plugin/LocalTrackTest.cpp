#include "framework/services/SystemServices.h"
#include "plugin/catalogue/LocalTrack.h"
#include "tests/plugin/AudioFolder.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

using namespace KVX;
using namespace Sorvel;

namespace {

using PluginTest::AudioFolder;

} // namespace

TEST_F(AudioFolder, WaveAt441kStereoWithIntegerSamplesIsCompatible)
{
    EXPECT_TRUE(compatible(write("song16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16)));
    EXPECT_TRUE(compatible(write("song24.WAV", SF_FORMAT_WAV | SF_FORMAT_PCM_24)));
    EXPECT_TRUE(compatible(write("song32.wave", SF_FORMAT_WAV | SF_FORMAT_PCM_32)));
    EXPECT_TRUE(compatible(write("Grüße mix.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16)));

    Ref<LocalTrack> track = LocalTrack::createFromFile(write("take.1.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16));
    EXPECT_EQ(track->name, "take.1");
    EXPECT_EQ(track->uploadState, LocalTrack::kNotUploaded);
    EXPECT_TRUE(track->id.isEmpty());
    EXPECT_EQ(track->url.fileName(), "take.1.wav");
}

TEST_F(AudioFolder, OtherRatesChannelsDepthsAndTypesAreNot)
{
    EXPECT_FALSE(compatible(write("48k.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000)));
    EXPECT_FALSE(compatible(write("mono.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 1)));
    EXPECT_FALSE(compatible(write("8bit.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8)));
    EXPECT_FALSE(compatible(write("float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT)));
    EXPECT_FALSE(compatible(write("song.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16))); // refused by type
    EXPECT_FALSE(compatible(write("song.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16)));

    // Broken files are incompatible, never a crash.
    EXPECT_FALSE(compatible(writeBytes("notes.wav", "this is not audio at all\n")));
    Url good = write("cut.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::filesystem::resize_file(good.nativePath().toUtf8(), 20);
    EXPECT_FALSE(compatible(good));
    EXPECT_FALSE(compatible(Url::fromNativePath(String(folder_ + "/missing.wav"))));
    EXPECT_FALSE(compatible(Url::fromNativePath(String(folder_ + "/noextension"))));
}

TEST(LocalTrack, FormatChecksCorrectWhatTheyRefuse)
{
    AudioFormat format = LocalTrack::requiredFormat();
    format.bitDepth = 24;
    EXPECT_TRUE(LocalTrack::checkAudioFormat(format));
    EXPECT_EQ(format.bitDepth, 24); // accepted records are left alone

    AudioFormat proposal;
    proposal.sampleRate = 44100.5;
    proposal.channelCount = 2;
    proposal.bitDepth = 24;
    proposal.options = 9;
    proposal.layout = 1;
    EXPECT_FALSE(LocalTrack::checkAudioFormat(proposal));
    EXPECT_EQ(proposal, LocalTrack::requiredFormat()); // every field, the untested ones too
    EXPECT_EQ(proposal.layout, 3);

    FileType wave{};
    std::strcpy(wave.extension, "WAVE");
    EXPECT_TRUE(LocalTrack::checkFileType(wave));
    EXPECT_STREQ(wave.extension, "WAVE");

    FileType aiff{};
    ASSERT_EQ(GetFileTypeRegistry()->getFileTypeByExtension("aif", aiff), kResultOk);
    EXPECT_FALSE(LocalTrack::checkFileType(aiff));
    FileType expected{};
    ASSERT_EQ(GetFileTypeRegistry()->getFileTypeByExtension("wav", expected), kResultOk);
    EXPECT_STREQ(aiff.extension, expected.extension);
    EXPECT_STREQ(aiff.mimeType, expected.mimeType);
    EXPECT_STREQ(aiff.description, expected.description);
}
