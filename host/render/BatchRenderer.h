#pragma once

#include "framework/services/AudioFormat.h"
#include "host/render/RenderReport.h"

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Host {

/// Renders a batch of files with several WaveRenderers at once, one file per worker at a time.
///
/// Each file is resampled, dithered and written by one worker, so memory grows with the number of
/// workers, not with the files' lengths. When fewer files are left than workers (the end of a
/// batch, or a batch smaller than the machine), a file is decoded on a thread of its own a few
/// blocks ahead, so that the cores that would idle share its work. Each file's dither is seeded from its output
/// name, so its bytes are the same whatever the number of workers and the order they finish in.
///
/// The first failure stops the other workers at their next block; so does the interrupt flag
/// (Ctrl-C). Files not finished leave nothing behind (WaveRenderer writes through a pending
/// file); files already finished stay, for the caller to keep or remove.
///
/// Threads: render is called on one thread and returns when every worker has ended. The progress
/// callback runs on the workers, one call at a time.
class BatchRenderer
{
public:
    struct Task
    {
        std::filesystem::path source;
        std::filesystem::path output;
        KVX::AudioFormat format;
    };

    enum class Event
    {
        Started,
        Finished,
    };
    using Progress = std::function<void(std::size_t task, Event event)>;

    struct Outcome
    {
        bool ok = false;
        bool interrupted = false;
        std::size_t failedTask = 0; ///< when neither ok nor interrupted
        std::string error;          ///< the failed render's sentence
        std::vector<RenderReport> reports; ///< one per task, in the tasks' order
    };

    /// Workers to use when nothing is asked: one per core.
    static unsigned defaultWorkers();
    /// The seed of a file's dither: from its output's file name, never zero.
    static std::uint64_t ditherSeedFor(const std::filesystem::path& output);

    /// Renders `tasks` with at most `workers` at once (at least one, at most one per task).
    static Outcome render(const std::vector<Task>& tasks, unsigned workers, const std::atomic<bool>* interrupt = nullptr,
                          const Progress& progress = {});
};

} // namespace Host
