#include "host/watch/FolderWatch.h"

#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Host {

namespace fs = std::filesystem;

namespace {

/// What the watch asks of inotify: the closes and opens that tell whether a file is done, the
/// renames and removals in the folder, and the folder's own end.
constexpr std::uint32_t kWatchMask = IN_CLOSE_WRITE | IN_CLOSE_NOWRITE | IN_OPEN | IN_MOVED_TO | IN_MOVED_FROM |
                                     IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

std::int64_t nanoseconds(const struct timespec& time)
{
    return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

std::int64_t wallClockNow()
{
    struct timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return nanoseconds(now);
}

bool readableAudio(const fs::path& path, std::string& reason)
{
    SF_INFO info{};
    SNDFILE* sound = sf_open(path.c_str(), SFM_READ, &info);
    if (!sound)
    {
        reason = "not an audio file that can be read";
        return false;
    }
    sf_close(sound);
    return true;
}

} // namespace

bool FolderWatch::isTemporaryName(const std::string& name)
{
    auto endsWith = [&](std::string_view tail) {
        return name.size() >= tail.size() && name.compare(name.size() - tail.size(), tail.size(), tail) == 0;
    };
    return name.empty() || name[0] == '.' || endsWith(".part") || endsWith(".tmp") || endsWith("~");
}

std::unique_ptr<FolderWatch> FolderWatch::create(const std::vector<fs::path>& folders, Options options, std::string& error)
{
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0)
    {
        error = errno == EMFILE ? "cannot watch folders: the limit of inotify instances (fs.inotify.max_user_instances) "
                                  "or of open files is reached"
                                : std::string("cannot watch folders: ") + std::strerror(errno);
        return nullptr;
    }
    if (!options.isAudio)
        options.isAudio = readableAudio;
    std::unique_ptr<FolderWatch> watch(new FolderWatch(fd, std::move(options)));
    watch->startedAt_ = wallClockNow();
    for (const fs::path& given : folders)
    {
        std::error_code failure;
        const fs::path folder = fs::absolute(given, failure).lexically_normal();
        if (failure || !fs::is_directory(folder, failure))
        {
            error = given.string() + ": no such folder";
            return nullptr;
        }
        const int wd = inotify_add_watch(fd, folder.c_str(), kWatchMask);
        if (wd < 0)
        {
            error = given.string() + ": " +
                    (errno == ENOSPC ? std::string("the limit of inotify watches (fs.inotify.max_user_watches) is reached")
                                     : std::strerror(errno));
            return nullptr;
        }
        if (watch->folderOf_.emplace(wd, folder).second) // the same folder twice is watched once
            watch->folders_.push_back(folder);
    }
    return watch;
}

FolderWatch::~FolderWatch()
{
    if (fd_ >= 0)
        ::close(fd_); // removes every watch of this descriptor
}

std::optional<FolderWatch::Clock::time_point> FolderWatch::nextDue() const
{
    std::optional<Clock::time_point> next;
    for (const auto& [path, file] : pending_)
        if (!next || lookAt(file) < *next)
            next = lookAt(file);
    return next;
}

void FolderWatch::fail(std::string message)
{
    if (failed_)
        return;
    failed_ = true;
    pending_.clear();
    failures_.push_back({Event::Kind::Failed, {}, std::move(message)});
}

void FolderWatch::closed(const fs::path& path, Clock::time_point now)
{
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
    {
        pending_.erase(path);
        return;
    }
    Pending& file = pending_[path];
    file.due = now + options_.settle;
    file.size = static_cast<std::uint64_t>(status.st_size);
    file.modified = nanoseconds(status.st_mtim);
}

void FolderWatch::handle(int wd, std::uint32_t mask, const char* name, Clock::time_point now)
{
    if (mask & IN_Q_OVERFLOW)
    {
        rescan(now);
        return;
    }
    const auto folder = folderOf_.find(wd);
    if (folder == folderOf_.end())
        return;
    if (!name || !*name)
    {
        // The folder itself.
        if (mask & IN_DELETE_SELF)
            fail("the watched folder " + folder->second.string() + " was removed");
        else if (mask & IN_MOVE_SELF)
            fail("the watched folder " + folder->second.string() + " was moved away");
        else if (mask & IN_UNMOUNT)
            fail("the file system of the watched folder " + folder->second.string() + " was unmounted");
        else if (mask & IN_IGNORED)
            fail("the watched folder " + folder->second.string() + " can no longer be watched");
        return;
    }
    if ((mask & IN_ISDIR) || isTemporaryName(name))
        return;
    const fs::path path = folder->second / name;
    if (mask & (IN_CLOSE_WRITE | IN_MOVED_TO))
    {
        // A rename brings a finished file; a close ends one writer's pass, and another pass may
        // follow at once.
        const auto known = pending_.find(path);
        const int stillOpen = known == pending_.end() || (mask & IN_MOVED_TO) ? 0 : std::max(known->second.openedSince - 1, 0);
        closed(path, now);
        if (const auto file = pending_.find(path); file != pending_.end())
            file->second.openedSince = stillOpen;
        return;
    }
    const auto file = pending_.find(path);
    if (file == pending_.end())
        return; // opens and closes of files nobody finished lately: readers, or writers still busy
    if (mask & IN_OPEN)
        ++file->second.openedSince;
    else if (mask & IN_CLOSE_NOWRITE)
        file->second.openedSince = std::max(file->second.openedSince - 1, 0);
    else if (mask & (IN_DELETE | IN_MOVED_FROM))
        pending_.erase(file);
}

void FolderWatch::rescan(Clock::time_point now)
{
    // Closes may have been lost with the queue: what is still open shows in its size or time.
    for (auto& [path, file] : pending_)
        file.openedSince = 0;
    for (const fs::path& folder : folders_)
    {
        std::error_code failure;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, failure))
        {
            const std::string name = entry.path().filename().string();
            struct stat status{};
            // Changed since the watch began, by the time of the inode's last change: a file moved
            // in (mv, cp -p, rsync -t) keeps the time its content was written, but not that one.
            if (isTemporaryName(name) || ::stat(entry.path().c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
                nanoseconds(status.st_ctim) < startedAt_ || pending_.count(entry.path()))
                continue;
            if (const auto told = told_.find(entry.path().string());
                told != told_.end() && told->second.first.inode == status.st_ino &&
                told->second.first.size == static_cast<std::uint64_t>(status.st_size) &&
                told->second.first.modified == nanoseconds(status.st_mtim))
                continue;
            closed(entry.path(), now);
        }
    }
}

void FolderWatch::remember(const fs::path& path)
{
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0)
        return;
    const std::string key = path.string();
    if (const auto known = told_.find(key); known != told_.end())
    {
        toldOrder_.erase(known->second.second);
        told_.erase(known);
    }
    if (told_.size() >= kRememberedFiles)
    {
        told_.erase(toldOrder_.front().string());
        toldOrder_.pop_front();
    }
    toldOrder_.push_back(path);
    told_.emplace(key, std::make_pair(Told{static_cast<std::uint64_t>(status.st_ino),
                                           static_cast<std::uint64_t>(status.st_size), nanoseconds(status.st_mtim)},
                                      std::prev(toldOrder_.end())));
}

std::vector<FolderWatch::Event> FolderWatch::collect(Clock::time_point now)
{
    // Everything waiting is read, after a failure too (and dropped then): a loop that waits on
    // the descriptor would otherwise be woken again and again.
    alignas(inotify_event) char buffer[16384];
    for (;;)
    {
        const ssize_t got = ::read(fd_, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno != EAGAIN)
            fail(std::string("cannot read the watched folders' events: ") + std::strerror(errno));
        if (got <= 0)
            break;
        for (const char* at = buffer; at < buffer + got;)
        {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            if (!failed_)
                handle(event->wd, event->mask, event->len ? event->name : nullptr, now);
            at += sizeof(inotify_event) + event->len;
        }
    }
    if (failed_)
        return std::exchange(failures_, {});

    std::vector<std::pair<Clock::time_point, fs::path>> due;
    for (const auto& [path, file] : pending_)
        if (lookAt(file) <= now)
            due.emplace_back(lookAt(file), path);
    std::sort(due.begin(), due.end());
    std::vector<Event> events;
    for (const auto& [when, path] : due)
    {
        Pending& file = pending_[path];
        struct stat status{};
        if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        {
            pending_.erase(path);
            continue;
        }
        // Written through a descriptor opened before the watch began (no open was seen), or by
        // whoever holds it open: the size or time moved. It waits until they stay still.
        if (file.size != static_cast<std::uint64_t>(status.st_size) || file.modified != nanoseconds(status.st_mtim))
        {
            closed(path, now);
            continue;
        }
        pending_.erase(path);
        std::string reason;
        if (options_.isAudio(path, reason))
        {
            remember(path);
            events.push_back({Event::Kind::Finished, path, {}});
        }
        else
            events.push_back({Event::Kind::Skipped, path, reason});
    }
    return events;
}

std::vector<FolderWatch::Event> FolderWatch::wait(std::chrono::milliseconds timeout)
{
    auto left = timeout;
    if (const auto due = nextDue())
        left = std::clamp(std::chrono::duration_cast<std::chrono::milliseconds>(*due - Clock::now()) +
                              std::chrono::milliseconds(1),
                          std::chrono::milliseconds(0), timeout);
    pollfd ready{fd_, POLLIN, 0};
    if (!failed_)
        ::poll(&ready, 1, static_cast<int>(left.count()));
    return collect(Clock::now());
}

} // namespace Host
