#pragma once

#include "framework/services/IProgressNotify.h"

#include <atomic>
#include <chrono>

namespace KVX {

/// The state behind IProgressNotify for an object that runs a long transfer on a worker: a
/// cancel flag that the user-interface thread sets and the transfer polls, and a throttle for
/// progress reports, so that a fast transfer does not flood the user-interface loop with
/// messages. The deriving class supplies the reference counting and decides what a report does
/// (progressChanged).
///
/// Throttling: a report is passed on when at least `interval` has passed since the last one that
/// was, when it is the first of a transfer, or when it reaches the end (value 1 or more), so the
/// last report of a transfer always arrives.
class AbstractProgressNotify : public IProgressNotify
{
public:
    /// Asks the transfer to stop at its next check. Any thread.
    void cancel() { canceled_.store(true, std::memory_order_relaxed); }
    /// Clears the cancel flag and the throttle, before a new batch. Not while a transfer runs.
    void resetProgress();

    // IProgressNotify, called on the worker.
    void updateProgress(const ProgressState& state) override;
    bool isCanceled() override { return canceled_.load(std::memory_order_relaxed); }

protected:
    explicit AbstractProgressNotify(std::chrono::milliseconds interval = std::chrono::milliseconds(50))
        : interval_(interval)
    {
    }
    ~AbstractProgressNotify() = default;

    /// A report that passed the throttle. Worker thread.
    virtual void progressChanged(const ProgressState& state) = 0;
    /// Starts a new transfer: its first report passes at once. Worker thread.
    void beginTransfer() { lastReport_ = {}; }

private:
    using Clock = std::chrono::steady_clock;

    std::atomic<bool> canceled_{false};
    const std::chrono::milliseconds interval_;
    Clock::time_point lastReport_{}; // worker only
};

} // namespace KVX
