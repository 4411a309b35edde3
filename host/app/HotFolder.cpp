#include "host/app/Commands.h"
#include "host/app/Complaint.h"
#include "host/app/JsonOutput.h"
#include "host/ledger/PublishLedger.h"
#include "host/terminal/TextWidth.h"
#include "host/watch/DescriptorWaker.h"
#include "host/watch/FolderWatch.h"

#include "framework/services/IRunLoop.h"
#include "framework/services/SystemServices.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

/// The finished files not yet published, in the order they were first finished. A file finished
/// again while its batch runs counts as new: its generation tells the two exports apart.
class FinishedFiles
{
public:
    struct Entry
    {
        fs::path path;
        unsigned generation = 0;
    };

    void add(const fs::path& path)
    {
        const auto listed =
            std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) { return entry.path == path; });
        if (listed != entries_.end())
            ++listed->generation;
        else
            entries_.push_back({path, 0});
        last_ = Clock::now();
        fresh_ = true;
    }

    /// Whether a batch is due: a file finished since the last batch began, and none for `settle`.
    bool due(Clock::duration settle, Clock::time_point now) const { return fresh_ && now - last_ >= settle; }
    /// When a batch will be due, if no file finishes before.
    std::optional<Clock::time_point> dueAt(Clock::duration settle) const
    {
        return fresh_ ? std::optional<Clock::time_point>(last_ + settle) : std::nullopt;
    }

    /// The files of the next batch; a batch that fails leaves them listed for the one after it.
    std::vector<Entry> takeBatch()
    {
        fresh_ = false;
        return entries_;
    }
    /// Removes the files of `batch` that were not finished again since it began.
    void remove(const std::vector<Entry>& batch)
    {
        for (const Entry& done : batch)
            entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                          [&](const Entry& entry) {
                                              return entry.path == done.path && entry.generation == done.generation;
                                          }),
                           entries_.end());
    }

    /// Makes the files still listed a batch that is due at once (after a file of the last one
    /// could not be rendered, the others go without it and without waiting for another export).
    void dueNow()
    {
        fresh_ = !entries_.empty();
        last_ = Clock::time_point();
    }

    size_t size() const { return entries_.size(); }

private:
    std::vector<Entry> entries_;
    Clock::time_point last_;
    bool fresh_ = false;
};

/// A line of what the hot folder does: on standard output, or on standard error when standard
/// output carries the JSON documents.
[[gnu::format(printf, 2, 3)]] void say(bool json, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatText(format, arguments);
    va_end(arguments);
    // File names among them: nothing in one reaches the terminal as a control character.
    std::fprintf(json ? stderr : stdout, "%s\n", printable(text).c_str());
    flushOutput(json ? stderr : stdout);
}

} // namespace

int publishWatched(const PublishOptions& options)
{
    if (int code = checkFieldValues(options.fields, &options.product); code != kDone)
        return code;
    for (const auto& [key, values] : options.fields)
        if (values.size() != 1)
        {
            std::string flag = "--" + key.substr(key.find(':') + 1);
            std::transform(flag.begin(), flag.end(), flag.begin(), [](unsigned char c) { return std::tolower(c); });
            complain("%s was given %zu times: with --watch give it once, for every file", flag.c_str(), values.size());
            return kUsage;
        }
    // The first batch creates the product when the account has none of its name, and the later
    // batches add to it: --new-product would create another product for every batch.
    if (options.newProduct)
    {
        complain("--new-product cannot be used with --watch: each batch would create another product. Without "
                 "it the first batch creates the product when none has its name, and later batches add to it");
        return kUsage;
    }
    if (options.retries > 0)
    {
        complain("--retry cannot be used with --watch: the files of a batch that failed go with the next batch");
        return kUsage;
    }
    // The folders are watched before the sign-in: what is exported meanwhile is not missed.
    std::string error;
    std::unique_ptr<FolderWatch> watch =
        FolderWatch::create({options.watchFolders.begin(), options.watchFolders.end()}, {}, error);
    if (!watch)
    {
        complain("%s", error.c_str());
        return kUsage;
    }
    // The ledger is opened before anything is sent: one that cannot be used stops the command,
    // as it stops publish.
    const std::unique_ptr<PublishLedger> ledger = PublishLedger::open(PublishLedger::defaultFile(), error);
    if (!ledger)
    {
        complain("%s", error.c_str());
        return kConfiguration;
    }
    finishWorkOnTerminate();

    const auto signInStart = Clock::now();
    Runtime runtime;
    if (int code = runtime.start(); code != kDone)
        return code;
    if (int code = runtime.signIn(options.login); code != kDone)
        return code;
    double signInSeconds = std::chrono::duration<double>(Clock::now() - signInStart).count();

    FinishedFiles finished;
    std::string watchFailure;
    // Reads what the watch has; also while a batch runs (the run loop calls it), so that files
    // finished meanwhile go with the next batch. After a failure the watch only drops what comes.
    auto takeWatched = [&] {
        for (const FolderWatch::Event& event : watch->collect())
            switch (event.kind)
            {
            case FolderWatch::Event::Kind::Finished:
                finished.add(event.path);
                break;
            case FolderWatch::Event::Kind::Skipped:
                say(options.json, "Skipped %s: %s", event.path.c_str(), event.message.c_str());
                break;
            case FolderWatch::Event::Kind::Failed:
                watchFailure = event.message;
                return;
            }
    };
    for (const fs::path& folder : watch->folders())
        say(options.json, "Watching %s", folder.c_str());
    say(options.json, "Each finished export is published. Press Ctrl+C to stop.");
    DescriptorWaker waker(watch->descriptor(), takeWatched);

    const auto settle =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.settleSeconds));
    IRunLoop* loop = GetRunLoop();
    while (!gInterrupted.load(std::memory_order_relaxed) && !gTerminated.load(std::memory_order_relaxed) &&
           watchFailure.empty())
    {
        takeWatched();
        const Clock::time_point now = Clock::now();
        if (!watchFailure.empty())
            break;
        if (!finished.due(settle, now))
        {
            auto wake = now + std::chrono::milliseconds(250);
            if (const auto due = watch->nextDue())
                wake = std::min(wake, *due);
            if (const auto due = finished.dueAt(settle))
                wake = std::min(wake, *due);
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(wake - now).count() + 1;
            loop->processEvents(static_cast<uint32>(std::max<long long>(1, wait)));
            continue;
        }

        const std::vector<FinishedFiles::Entry> batch = finished.takeBatch();
        std::vector<SourceFile> sources;
        std::vector<FinishedFiles::Entry> unreadable;
        std::string names;
        for (const FinishedFiles::Entry& entry : batch)
        {
            SourceFile source;
            std::string reason;
            if (!SourceFile::open(entry.path, source, reason))
            {
                say(options.json, "Skipped %s: %s", entry.path.c_str(), reason.c_str());
                unreadable.push_back(entry);
                continue;
            }
            sources.push_back(std::move(source));
            names += (names.empty() ? "" : ", ") + entry.path.filename().string();
        }
        finished.remove(unreadable); // gone or no longer audio: a new export lists it again
        if (sources.empty())
            continue;
        say(options.json, "Publishing %zu file%s: %s", sources.size(), sources.size() == 1 ? "" : "s", names.c_str());
        // The account's products are read before each batch: the product that an earlier batch
        // created (also one that failed after creating it) is then found by its name and not
        // created again, and a list that could not be read at the sign-in is asked for again.
        const unsigned documentsBefore = JsonOutput::printedCount();
        fs::path unusable;
        const int code = publishBatch(options, runtime, *ledger, sources, {signInSeconds, true}, unusable);
        signInSeconds = 0; // the sign-in belongs to the first batch
        // A batch that ended before its report still gives its JSON line: one per batch.
        if (options.json && code != kDone && JsonOutput::printedCount() == documentsBefore)
            printFailureJson(code);
        flushOutput(stdout); // each batch's report (its JSON line) as soon as it ends, also into a pipe
        switch (code)
        {
        case kDone:
            finished.remove(batch);
            break;
        case kPreflightFailed:
            // Held back until the file is exported again: left listed, it would hold back every
            // batch after it.
            say(options.json, "Held back: %s (export the file again to publish it)", names.c_str());
            finished.remove(batch);
            break;
        case kUsage: // a file could not be rendered or read; said why
        {
            const auto failed = std::find_if(batch.begin(), batch.end(), [&](const FinishedFiles::Entry& entry) {
                return !unusable.empty() && entry.path == unusable;
            });
            if (failed == batch.end())
            {
                finished.remove(batch);
                break;
            }
            // Only that file is dropped (a new export lists it again); the others go at once.
            finished.remove({*failed});
            say(options.json, "Skipped %s: it could not be rendered (export it again to publish it)",
                failed->path.c_str());
            finished.dueNow();
            break;
        }
        case kServiceFailed:
            say(options.json, "Not published; %zu file%s wait%s for the next batch", finished.size(),
                finished.size() == 1 ? "" : "s", finished.size() == 1 ? "s" : "");
            break;
        default: // cancelled with Ctrl-C, the session expired, the configuration or the ledger cannot be used
            return code;
        }
    }
    if (gInterrupted.load(std::memory_order_relaxed))
        return kInterrupted;
    if (!watchFailure.empty())
    {
        complain("%s; stopped watching", watchFailure.c_str());
        return kUsage;
    }
    if (finished.size())
        say(options.json, "Stopped; %zu finished file%s not published", finished.size(),
            finished.size() == 1 ? "" : "s");
    return kDone;
}

} // namespace Host
