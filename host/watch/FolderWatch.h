#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Host {

/// Watches export folders with inotify and tells which files in them are finished: a file counts
/// once its writer has closed it (or it was renamed into the folder) and nobody has opened it
/// again for a short settle time, or, while something still holds it open, once it has stayed
/// unchanged for a long while. A file closed and at once opened again (a normalising second
/// pass) is told once, after its last close; a file under a hidden or temporary name (".name",
/// "*.part", "*.tmp", "*~") is not told until it is renamed to its final name. Each finished file
/// is told once per time it is written; a later export under the same path is told again.
///
/// The watch never waits by itself: descriptor() is the inotify descriptor, readable when events
/// came, and nextDue() the time a pending file will be due, so any loop can wait on it. collect()
/// reads what came and answers what is due. One thread (the user-interface thread, in the host).
///
/// Bounded: the memory of files told (to notice them again after a lost event queue) is capped;
/// the files waiting for their settle time are those of the folders written in the last moments,
/// each forgotten when it is told or removed; the descriptor is closed with the watch.
class FolderWatch
{
public:
    using Clock = std::chrono::steady_clock;

    struct Options
    {
        /// How long a closed file must stay closed before it counts as finished.
        std::chrono::milliseconds settle{150};
        /// Whether a finished file is audio, with why not in `reason`. By default: whether
        /// libsndfile can open it.
        std::function<bool(const std::filesystem::path&, std::string& reason)> isAudio;
        /// How long a file closed by its writer and held open since must stay unchanged (in size
        /// and time) before it counts as finished all the same. inotify drops an event that is the
        /// same as the one before it in the queue, so of two readers' closes one can be lost: the
        /// file would seem open for ever. A writer's second pass changes the file long before.
        std::chrono::milliseconds heldOpenLimit{30000};
    };

    struct Event
    {
        enum class Kind
        {
            Finished, ///< an audio file is finished
            Skipped,  ///< a finished file is not audio; `message` says why
            Failed,   ///< the watch cannot go on (its folder went away); `message` says why
        };
        Kind kind;
        std::filesystem::path path;
        std::string message;
    };

    /// Starts watching `folders`. Nothing, with a sentence in `error`, when a folder is missing,
    /// or the system's inotify limits are reached.
    static std::unique_ptr<FolderWatch> create(const std::vector<std::filesystem::path>& folders, Options options,
                                               std::string& error);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// The inotify descriptor (non-blocking, closed on exec): readable when events are waiting.
    int descriptor() const { return fd_; }
    /// When the next pending file will be due; nothing while none is pending.
    std::optional<Clock::time_point> nextDue() const;
    /// Reads the events that came (without waiting) and answers, in the order they became due,
    /// the files finished by `now`, those skipped, and a failure. After a failure the watch
    /// answers nothing more, and drops what still comes, so the descriptor does not stay readable.
    std::vector<Event> collect(Clock::time_point now = Clock::now());
    /// Waits for events or the next due file, at most `timeout`, then collect(). For loops that
    /// have nothing else to wait on.
    std::vector<Event> wait(std::chrono::milliseconds timeout);

    bool failed() const { return failed_; }
    /// Files closed or renamed in and not yet told.
    size_t pendingCount() const { return pending_.size(); }
    /// The folders watched.
    const std::vector<std::filesystem::path>& folders() const { return folders_; }

    /// Whether `name` is one a writer uses while the file is not done (hidden or temporary).
    static bool isTemporaryName(const std::string& name);

    /// The most files remembered as told, to know them again after a lost event queue.
    static constexpr size_t kRememberedFiles = 4096;

private:
    struct Pending
    {
        Clock::time_point due;
        int openedSince = 0; ///< opens seen since it was closed, not yet closed again
        std::uint64_t size = 0;
        std::int64_t modified = 0; ///< nanoseconds
    };
    /// What a told file was, to know it again.
    struct Told
    {
        std::uint64_t inode, size;
        std::int64_t modified;
    };

    FolderWatch(int fd, Options options) : fd_(fd), options_(std::move(options)) {}
    /// When `file` is next looked at: its settle time after the last close, or the held-open
    /// limit after it while someone holds it open.
    Clock::time_point lookAt(const Pending& file) const
    {
        return file.openedSince == 0 ? file.due : file.due + options_.heldOpenLimit;
    }
    void handle(int wd, std::uint32_t mask, const char* name, Clock::time_point now);
    void closed(const std::filesystem::path& path, Clock::time_point now);
    /// The event queue overflowed: every file of the folders changed since the watch began and
    /// not told already is looked at again.
    void rescan(Clock::time_point now);
    void fail(std::string message);
    void remember(const std::filesystem::path& path);

    int fd_ = -1;
    Options options_;
    std::vector<std::filesystem::path> folders_;
    std::unordered_map<int, std::filesystem::path> folderOf_; ///< by watch descriptor
    std::map<std::filesystem::path, Pending> pending_;
    std::list<std::filesystem::path> toldOrder_;
    std::unordered_map<std::string, std::pair<Told, std::list<std::filesystem::path>::iterator>> told_;
    std::int64_t startedAt_ = 0; ///< wall clock, nanoseconds
    std::vector<Event> failures_;
    bool failed_ = false;
};

} // namespace Host
