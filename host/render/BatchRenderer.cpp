#include "host/render/BatchRenderer.h"

#include "host/render/WaveRenderer.h"

#include <algorithm>
#include <mutex>
#include <thread>

namespace Host {

unsigned BatchRenderer::defaultWorkers()
{
    return std::max(1u, std::thread::hardware_concurrency());
}

std::uint64_t BatchRenderer::ditherSeedFor(const std::filesystem::path& output)
{
    // FNV-1a of the name: stable from run to run and machine to machine, unlike std::hash.
    std::uint64_t hash = 0xCBF29CE484222325ull;
    for (const unsigned char letter : output.filename().string())
        hash = (hash ^ letter) * 0x100000001B3ull;
    return hash ? hash : 1;
}

BatchRenderer::Outcome BatchRenderer::render(const std::vector<Task>& tasks, unsigned workers,
                                             const std::atomic<bool>* interrupt, const Progress& progress)
{
    Outcome outcome;
    outcome.reports.resize(tasks.size());
    if (tasks.empty())
    {
        outcome.ok = true;
        return outcome;
    }
    const unsigned cores = std::max(1u, workers);
    workers = std::clamp<unsigned>(workers, 1, static_cast<unsigned>(tasks.size()));

    std::atomic<bool> stop{false};   // every worker's cancel flag
    std::atomic<std::size_t> next{0}; // the next task to take
    std::mutex mutex;                // guards the outcome, and serialises the progress calls
    bool failed = false;

    auto work = [&] {
        auto stopped = [&] {
            return stop.load(std::memory_order_relaxed) || (interrupt && interrupt->load(std::memory_order_relaxed));
        };
        for (std::size_t task; !stopped() && (task = next.fetch_add(1)) < tasks.size();)
        {
            if (progress)
            {
                std::lock_guard lock(mutex);
                progress(task, Event::Started);
            }
            WaveRenderer renderer(tasks[task].format);
            renderer.setCancelFlag(&stop, interrupt);
            renderer.setDitherSeed(ditherSeedFor(tasks[task].output));
            // When fewer files are left than workers, a core would idle: the file is decoded on
            // a thread of its own beside the rest of its render.
            const std::size_t notTaken = tasks.size() - std::min(tasks.size(), next.load());
            renderer.setDecodeAhead(notTaken + 1 < cores);
            RenderReport report;
            const bool rendered = renderer.render(tasks[task].source, tasks[task].output, report);
            std::lock_guard lock(mutex);
            outcome.reports[task] = report;
            if (rendered)
            {
                if (progress)
                    progress(task, Event::Finished);
            }
            else if (!failed && !(interrupt && interrupt->load()))
            {
                // The first failure speaks for the batch; the others only stopped because of it.
                failed = true;
                outcome.failedTask = task;
                outcome.error = report.error;
                stop.store(true, std::memory_order_relaxed);
            }
        }
    };

    std::vector<std::thread> threads;
    for (unsigned i = 1; i < workers; ++i)
        threads.emplace_back(work);
    work(); // the calling thread renders too
    for (std::thread& thread : threads)
        thread.join();

    outcome.interrupted = !failed && interrupt && interrupt->load();
    outcome.ok = !failed && !outcome.interrupted && next.load() >= tasks.size();
    return outcome;
}

} // namespace Host
