#include "framework/threading/AbstractProgressNotify.h"

namespace KVX {

void AbstractProgressNotify::resetProgress()
{
    canceled_.store(false, std::memory_order_relaxed);
    lastReport_ = {};
}

void AbstractProgressNotify::updateProgress(const ProgressState& state)
{
    const Clock::time_point now = Clock::now();
    const bool first = lastReport_ == Clock::time_point{};
    const bool last = state.value >= 1.0;
    if (!first && !last && now - lastReport_ < interval_)
        return;
    lastReport_ = now;
    progressChanged(state);
}

} // namespace KVX
