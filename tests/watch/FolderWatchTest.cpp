// The watched folder held to the writers a workstation or a file manager is: each finished audio
// file told exactly once, with its final content. Time is the test's own: collect() is given the
// moment it stands for, so no test waits for a settle time to pass.

#include "host/watch/DescriptorWaker.h"
#include "host/watch/FolderWatch.h"
#include "tests/render/TestSound.h"

#include "framework/hostsupport/EventWait.h"
#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <poll.h>
#include <set>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using Host::FolderWatch;
using Clock = FolderWatch::Clock;
using Kind = FolderWatch::Event::Kind;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr auto kSettle = 300ms;

/// A 44.1 kHz 16-bit stereo WAV file written as a recorder writes it: a header whose sizes are
/// not known yet, the samples in pieces, and at the end the header again with the real sizes.
class WaveWriter
{
public:
    /// Opens `path` for writing (`flags` added to O_WRONLY | O_CREAT | O_TRUNC).
    explicit WaveWriter(const fs::path& path, int flags = 0) : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | flags, 0644))
    {
        header(0);
    }
    ~WaveWriter() { close(); }

    bool ok() const { return fd_ >= 0; }
    /// Appends `frames` frames of a tone whose height is `level`.
    void write(int frames, short level)
    {
        std::vector<short> samples(static_cast<size_t>(frames) * 2);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<short>((i / 2) % 100 < 50 ? level : -level);
        put(samples.data(), samples.size() * sizeof(short));
        dataBytes_ += static_cast<uint32_t>(samples.size() * sizeof(short));
    }
    /// The header with the real sizes, then the close.
    void finish()
    {
        ::lseek(fd_, 0, SEEK_SET);
        header(dataBytes_);
        close();
    }
    void close()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

private:
    void put(const void* bytes, size_t size) { ASSERT_EQ(::write(fd_, bytes, size), static_cast<ssize_t>(size)); }
    void header(uint32_t dataBytes)
    {
        auto u32 = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
        auto u16 = [](uint16_t v) { return std::string{char(v), char(v >> 8)}; };
        const std::string text = "RIFF" + u32(dataBytes ? 36 + dataBytes : 0) + "WAVEfmt " + u32(16) + u16(1) + u16(2) +
                                 u32(44100) + u32(44100 * 4) + u16(4) + u16(16) + "data" + u32(dataBytes);
        put(text.data(), text.size());
    }

    int fd_;
    uint32_t dataBytes_ = 0;
};

/// The watch with the test's clock: each step stands for the moment it is given.
struct Watched
{
    RenderTest::TempFolder folder;
    std::unique_ptr<FolderWatch> watch;
    Clock::time_point now = Clock::now();
    std::multiset<std::string> finished; ///< file names, as often as they were told
    std::vector<std::pair<std::string, std::string>> skipped;
    std::map<std::string, std::string> content; ///< each finished file's bytes when it was told

    Watched(std::chrono::milliseconds settle = kSettle)
    {
        std::string error;
        watch = FolderWatch::create({folder.path()}, {settle, {}}, error);
        EXPECT_TRUE(watch) << error;
    }
    fs::path operator/(const std::string& name) const { return folder / name; }

    /// Collects at the test's present, then `later` after it.
    void step(std::chrono::milliseconds later = 0ms)
    {
        now += later;
        for (const FolderWatch::Event& event : watch->collect(now))
        {
            const std::string name = event.path.filename().string();
            if (event.kind == Kind::Finished)
            {
                finished.insert(name);
                content[name] = RenderTest::readBytes(event.path);
            }
            else if (event.kind == Kind::Skipped)
                skipped.emplace_back(name, event.message);
            else
                ADD_FAILURE() << "failed: " << event.message;
        }
    }
    /// Reads what came, then as much time passes as a file needs to settle, and a little more.
    void settle()
    {
        step();
        step(kSettle + 1ms);
    }
};

TEST(FolderWatch, EveryWriterIsListedOnceWithItsFinalContent)
{
    // Written in place over several seconds, the header rewritten at the end.
    {
        Watched w;
        WaveWriter writer(w / "Mixdown.wav");
        for (int piece = 0; piece < 8; ++piece)
        {
            writer.write(4410, 1000);
            w.step(700ms); // the writer is slow: nothing counts while the file is open
            EXPECT_TRUE(w.finished.empty());
        }
        writer.finish();
        w.step();
        w.step(kSettle - 10ms);
        EXPECT_TRUE(w.finished.empty()) << "told before its settle time";
        w.step(20ms);
        EXPECT_EQ(w.finished.count("Mixdown.wav"), 1u);
        const RenderTest::Sound sound = RenderTest::readSound(w / "Mixdown.wav");
        ASSERT_TRUE(sound.ok);
        EXPECT_EQ(sound.info.frames, 8 * 4410);
        EXPECT_TRUE(w.content["Mixdown.wav"] == RenderTest::readBytes(w / "Mixdown.wav")) << "the final bytes";
        w.step(10s);
        EXPECT_EQ(w.finished.size(), 1u);
    }
    // Written under a hidden or temporary name, then renamed to its final one.
    {
        Watched w;
        for (const char* name : {".Take.wav", "Take.wav.part", "Take.tmp", "Take.wav~"})
        {
            WaveWriter writer(w / name);
            writer.write(4410, 2000);
            writer.finish();
        }
        w.step(5s);
        EXPECT_TRUE(w.finished.empty()) << "a temporary name is never listed";
        fs::rename(w / ".Take.wav", w / "Take.wav");
        fs::rename(w / "Take.wav.part", w / "Part.wav");
        w.step();
        EXPECT_TRUE(w.finished.empty());
        w.settle();
        EXPECT_EQ(w.finished, (std::multiset<std::string>{"Part.wav", "Take.wav"}));
        EXPECT_TRUE(w.skipped.empty());
    }
    // Written twice in a row: a normalising second pass opens the file again at once.
    {
        Watched w;
        {
            WaveWriter first(w / "Loud.wav");
            first.write(44100, 1000);
            first.finish();
        }
        w.step(100ms);
        WaveWriter second(w / "Loud.wav");
        for (int piece = 0; piece < 4; ++piece)
        {
            second.write(11025, 8000);
            w.step(kSettle * 2); // the second pass takes longer than a settle time
        }
        EXPECT_TRUE(w.finished.empty()) << "the first pass is never listed";
        second.finish();
        w.settle();
        EXPECT_EQ(w.finished.count("Loud.wav"), 1u);
        EXPECT_TRUE(w.content["Loud.wav"] == RenderTest::readBytes(w / "Loud.wav")) << "the final bytes";
        EXPECT_EQ(RenderTest::readSound(w / "Loud.wav").samples.at(0) >> 16, 8000) << "the second pass's samples";
        // A reader (a thumbnailer, the render step) changes nothing.
        RenderTest::readSound(w / "Loud.wav");
        w.settle();
        EXPECT_EQ(w.finished.size(), 1u);
    }
    // Held open after its writer closed it, by a reader that does not close it (or whose close
    // inotify dropped as the same event as another reader's): told once it stayed unchanged for
    // the held-open limit, and not again when the reader lets go.
    {
        Watched w;
        {
            WaveWriter writer(w / "Held.wav");
            writer.write(4410, 1000);
            writer.finish();
        }
        w.step();
        const Clock::time_point closedAt = w.now;
        const int reader = ::open((w / "Held.wav").c_str(), O_RDONLY);
        ASSERT_GE(reader, 0);
        w.step(kSettle * 2);
        EXPECT_TRUE(w.finished.empty()) << "told while it is held open";
        const auto limit = FolderWatch::Options().heldOpenLimit;
        EXPECT_EQ(w.watch->nextDue(), closedAt + kSettle + limit) << "a loop waits until the limit";
        w.now = closedAt + kSettle + limit - 1ms;
        w.step();
        EXPECT_TRUE(w.finished.empty()) << "told before the held-open limit";
        w.step(1ms);
        EXPECT_EQ(w.finished.count("Held.wav"), 1u);
        ::close(reader);
        w.settle();
        EXPECT_EQ(w.finished.size(), 1u) << "the reader's late close tells nothing";
    }
    // Copied in by a file manager, and moved in from another folder.
    {
        RenderTest::TempFolder elsewhere;
        for (const char* name : {"Copied.wav", "Moved.wav"})
        {
            WaveWriter writer(elsewhere / name);
            writer.write(22050, 3000);
            writer.finish();
        }
        Watched w;
        fs::copy_file(elsewhere / "Copied.wav", w / "Copied.wav");
        fs::rename(elsewhere / "Moved.wav", w / "Moved.wav");
        w.settle();
        EXPECT_EQ(w.finished, (std::multiset<std::string>{"Copied.wav", "Moved.wav"}));
        EXPECT_TRUE(w.content["Copied.wav"] == RenderTest::readBytes(elsewhere / "Copied.wav")) << "the copy whole";
    }
    // Already being written when the watch starts.
    {
        RenderTest::TempFolder folder;
        WaveWriter writer(folder / "Early.wav");
        writer.write(4410, 1500);
        std::string error;
        auto watch = FolderWatch::create({folder.path()}, {kSettle, {}}, error);
        ASSERT_TRUE(watch) << error;
        Clock::time_point now = Clock::now();
        writer.write(4410, 1500);
        EXPECT_TRUE(watch->collect(now += 2s).empty());
        writer.finish();
        watch->collect(now);
        const auto events = watch->collect(now + kSettle);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].kind, Kind::Finished);
        EXPECT_EQ(RenderTest::readSound(events[0].path).info.frames, 8820);
    }
    // A burst of 100 files.
    {
        Watched w;
        for (int i = 0; i < 100; ++i)
        {
            WaveWriter writer(w / ("Burst " + std::to_string(i) + ".wav"));
            writer.write(441, static_cast<short>(100 + i));
            writer.finish();
        }
        w.step();
        EXPECT_EQ(w.watch->pendingCount(), 100u);
        w.settle();
        EXPECT_EQ(w.finished.size(), 100u);
        EXPECT_EQ(std::set<std::string>(w.finished.begin(), w.finished.end()).size(), 100u) << "each once";
        EXPECT_EQ(w.watch->pendingCount(), 0u);
    }
    // A file that is not audio: a line saying it is skipped, nothing else.
    {
        Watched w;
        std::ofstream(w / "notes.txt") << "mix notes, not audio";
        w.settle();
        EXPECT_TRUE(w.finished.empty());
        ASSERT_EQ(w.skipped.size(), 1u);
        EXPECT_EQ(w.skipped[0].first, "notes.txt");
        EXPECT_NE(w.skipped[0].second.find("not an audio file"), std::string::npos);
        w.settle();
        EXPECT_EQ(w.skipped.size(), 1u);
    }
}

TEST(FolderWatch, AFolderThatGoesOrALimitReachedEndsTheWatchWithAReason)
{
    RenderTest::TempFolder parentOfAll;
    std::string error;
    EXPECT_FALSE(FolderWatch::create({"/nonexistent/exports"}, {}, error));
    EXPECT_NE(error.find("/nonexistent/exports: no such folder"), std::string::npos) << error;

    for (const bool moved : {false, true})
    {
        RenderTest::TempFolder parent;
        fs::create_directory(parent / "exports");
        auto watch = FolderWatch::create({parent / "exports"}, {kSettle, {}}, error);
        ASSERT_TRUE(watch) << error;
        std::ofstream(parent / "exports" / "half.wav") << "RIFF";
        if (moved)
            fs::rename(parent / "exports", parent / "elsewhere");
        else
            fs::remove_all(parent / "exports");
        const auto events = watch->collect();
        ASSERT_FALSE(events.empty());
        EXPECT_EQ(events.back().kind, Kind::Failed);
        EXPECT_NE(events.back().message.find(moved ? "was moved away" : "was removed"), std::string::npos)
            << events.back().message;
        EXPECT_TRUE(watch->failed());
        EXPECT_TRUE(watch->collect(Clock::now() + 1h).empty()) << "nothing after the end";
    }

    // One of two folders goes: the watch ends, and what still comes from the other is dropped,
    // so that the descriptor a loop waits on does not stay readable.
    {
        RenderTest::TempFolder kept, parent;
        fs::create_directory(parent / "exports");
        auto watch = FolderWatch::create({kept.path(), parent / "exports"}, {kSettle, {}}, error);
        ASSERT_TRUE(watch) << error;
        fs::remove_all(parent / "exports");
        ASSERT_FALSE(watch->collect().empty());
        ASSERT_TRUE(watch->failed());
        std::ofstream(kept / "later.wav") << "RIFF";
        pollfd ready{watch->descriptor(), POLLIN, 0};
        ASSERT_EQ(::poll(&ready, 1, 5000), 1) << "the close in the other folder came";
        EXPECT_TRUE(watch->collect().empty());
        EXPECT_EQ(::poll(&ready, 1, 0), 0) << "read and dropped";
    }

    // No descriptor left for an inotify instance: the limit is named. A new descriptor takes the
    // lowest free number, so the limit is set to it.
    rlimit limits{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limits), 0);
    const int lowestFree = ::dup(0);
    ASSERT_GE(lowestFree, 0);
    ::close(lowestFree);
    rlimit tight = limits;
    tight.rlim_cur = static_cast<rlim_t>(lowestFree);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    auto refused = FolderWatch::create({parentOfAll.path()}, {}, error);
    setrlimit(RLIMIT_NOFILE, &limits);
    EXPECT_FALSE(refused);
    EXPECT_NE(error.find("limit"), std::string::npos) << error;
}

TEST(FolderWatch, ALostEventQueueIsMadeUpForAndNothingLeaks)
{
    auto openDescriptors = [] {
        size_t count = 0;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd"))
            count += entry.is_symlink() ? 1 : 0;
        return count;
    };
    const size_t before = openDescriptors();
    for (int round = 0; round < 50; ++round)
    {
        Watched w;
        std::ofstream(w / "a.txt") << round;
        w.settle();
    }
    EXPECT_EQ(openDescriptors(), before) << "each watch closes its descriptor";

    Watched w;
    {
        WaveWriter writer(w / "Told.wav");
        writer.write(441, 100);
        writer.finish();
    }
    w.settle();
    ASSERT_EQ(w.finished.size(), 1u);
    // More events than the kernel keeps (an open and a close alternate, so none merge), with a
    // file finished in the middle of them.
    int kept = 16384;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> kept;
    // A file written an hour ago, moved in while events are lost (mv keeps its time).
    {
        WaveWriter writer(w / ".Moved.wav");
        writer.write(441, 100);
        writer.finish();
    }
    const timeval hourAgo[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    ASSERT_EQ(::utimes((w / ".Moved.wav").c_str(), hourAgo), 0);
    const auto flood = w / ".flood";
    std::ofstream(flood) << "x";
    for (int i = 0; i < kept; ++i)
        ::close(::open(flood.c_str(), O_RDONLY));
    {
        WaveWriter writer(w / "Lost.wav");
        writer.write(441, 100);
        writer.finish();
    }
    fs::rename(w / ".Moved.wav", w / "Moved.wav");
    w.step();
    w.settle();
    EXPECT_EQ(w.finished, (std::multiset<std::string>{"Lost.wav", "Moved.wav", "Told.wav"}))
        << "the files finished or moved in while events were lost are found, the one told already is not told again";
}

TEST(FolderWatch, TheRunLoopHearsOfTheFolderThroughTheWaker)
{
    Watched w(50ms);
    int wakes = 0;
    bool onLoopThread = true;
    {
        Host::DescriptorWaker waker(w.watch->descriptor(), [&] {
            ++wakes;
            onLoopThread = onLoopThread && GetRunLoop()->isLoopThread();
            w.now = Clock::now();
            w.step(); // reads what came
        });
        {
            WaveWriter writer(w / "Woken.wav");
            writer.write(441, 100);
            writer.finish();
        }
        ASSERT_TRUE(KVX::EventWait::until([&] { return w.watch->pendingCount() == 1; }, 10000))
            << "the close woke the loop";
        EXPECT_TRUE(onLoopThread);
        // The loop waits until the file is due, as the gadget's loop does.
        const auto deadline = Clock::now() + 10s;
        while (w.finished.empty() && Clock::now() < deadline)
        {
            const auto due = w.watch->nextDue().value_or(Clock::now() + 100ms);
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now()).count();
            GetRunLoop()->processEvents(static_cast<KVX::uint32>(std::clamp<long long>(wait + 1, 1, 100)));
            w.now = Clock::now();
            w.step();
        }
        EXPECT_EQ(w.finished.count("Woken.wav"), 1u);
    }
    const int woken = wakes;
    std::ofstream(w / "after.txt") << "the waker is gone";
    KVX::EventWait::runFor(50);
    EXPECT_EQ(wakes, woken) << "no call after the waker went";
}

} // namespace
