#pragma once

// Fakes and helpers of the track table's tests: a signal log, the owner's upload state, audio
// files written with libsndfile, drag sessions, the theme's "TrackList" style, and rows.

#include "Implements.h"

#include "framework/component/Message.h"
#include "framework/component/ObserverConnection.h"
#include "framework/data/UrlObject.h"
#include "framework/list/DragSession.h"
#include "framework/services/GuiServices.h"
#include "plugin/views/IUploadState.h"
#include "plugin/views/TrackItem.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ViewTests {

/// Records the names of the signals of one subject.
class SignalLog : public Implements<KVX::IObserver>
{
public:
    explicit SignalLog(KVX::ISubject* subject) { connection_.connect(subject, this); }
    ~SignalLog() override { connection_.disconnect(); }

    void notify(KVX::ISubject*, KVX::IMessage& message) override { ids.emplace_back(KVX::idOf(message)); }
    int count(std::string_view id) const { return static_cast<int>(std::count(ids.begin(), ids.end(), id)); }

    std::vector<std::string> ids;

private:
    KVX::ObserverConnection connection_;
};

/// The owner's answer to "is an upload running", set by the test.
class FakeUploadState : public Implements<Sorvel::IUploadState>
{
public:
    bool uploading = false;
    bool isUploading() override { return uploading; }
};

/// A folder of files written by the test, removed afterwards.
class TestFolder
{
public:
    TestFolder()
    {
        char pattern[] = "/tmp/sorvel-views-XXXXXX";
        path_ = mkdtemp(pattern) ? pattern : "";
        EXPECT_FALSE(path_.empty());
    }
    ~TestFolder() { std::filesystem::remove_all(path_); }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    /// A short stereo WAV file at 44.1 kHz, 16 bits: what the service takes.
    KVX::Url wav(const std::string& name) const
    {
        const std::string path = path_ + "/" + name;
        SF_INFO info{};
        info.samplerate = 44100;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        EXPECT_NE(file, nullptr) << path;
        if (file)
        {
            std::vector<short> frames(4410 * 2, 500);
            sf_write_short(file, frames.data(), static_cast<sf_count_t>(frames.size()));
            sf_close(file);
        }
        return KVX::Url::fromNativePath(KVX::String(path));
    }
    KVX::Url text(const std::string& name) const
    {
        const std::string path = path_ + "/" + name;
        std::ofstream(path) << "not audio\n";
        return KVX::Url::fromNativePath(KVX::String(path));
    }

private:
    std::string path_;
};

/// A drag of files from outside the host, with the picture its source made of them.
inline KVX::Ref<KVX::DragSession> fileDrag(const std::vector<KVX::Url>& files, KVX::IUnknown* sourceImage = nullptr)
{
    auto session = KVX::makeRef<KVX::DragSession>(nullptr, sourceImage);
    for (const KVX::Url& url : files)
        session->addItem(static_cast<KVX::IUrl*>(KVX::makeRef<KVX::UrlObject>(url).get()));
    return session;
}

/// A drag of objects, in order, that starts in a view.
inline KVX::Ref<KVX::DragSession> drag(std::initializer_list<KVX::IUnknown*> objects, KVX::IUnknown* source = nullptr,
                                       KVX::IUnknown* sourceImage = nullptr)
{
    auto session = KVX::makeRef<KVX::DragSession>(source, sourceImage);
    for (KVX::IUnknown* object : objects)
        session->addItem(object);
    return session;
}

/// The plug-in's built theme, loaded under "sorvel" once.
inline bool loadBuiltTheme()
{
    static const bool loaded = [] {
        std::ifstream in(BuildPaths::themePackage(), std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        return !bytes.empty() && GetThemeManager()->loadTheme("sorvel", bytes.data(), bytes.size()) == KVX::kResultOk;
    }();
    return loaded;
}

/// A style of the built theme as the host's view hands it to the model.
inline KVX::Ref<KVX::IViewStyle> themeStyle(const char* name)
{
    KVX::IViewStyle* style = nullptr;
    EXPECT_TRUE(loadBuiltTheme());
    EXPECT_EQ(GetGraphicsHelper()->createViewStyle("sorvel", name, &style), KVX::kResultOk);
    return KVX::Ref<KVX::IViewStyle>::adopt(style);
}

inline KVX::Ref<Sorvel::Track> remoteTrack(const char* name)
{
    auto track = KVX::makeRef<Sorvel::Track>();
    track->id = KVX::String("t-" + std::string(name));
    track->name = name;
    return track;
}

/// A local file that passed the format check, without a file behind it.
inline KVX::Ref<Sorvel::LocalTrack> localTrack(const char* name, KVX::int32 state = Sorvel::LocalTrack::kNotUploaded,
                                               bool incompatible = false)
{
    auto track = KVX::makeRef<Sorvel::LocalTrack>();
    track->name = name;
    track->url = KVX::Url::fromNativePath(KVX::String("/music/" + std::string(name) + ".wav"));
    track->uploadState = state;
    track->incompatible = incompatible;
    return track;
}

inline KVX::Ref<Sorvel::TrackItem> row(Sorvel::Track* remote, Sorvel::LocalTrack* local)
{
    auto item = KVX::makeRef<Sorvel::TrackItem>();
    item->setRemoteTrack(remote);
    item->setLocalTrack(local);
    return item;
}

} // namespace ViewTests
