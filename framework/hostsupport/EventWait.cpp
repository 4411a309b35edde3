#include "framework/hostsupport/EventWait.h"

#include "framework/services/SystemServices.h"

#include <chrono>

namespace KVX {

bool EventWait::until(const std::function<bool()>& condition, uint32 timeoutMs)
{
    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    IRunLoop* loop = GetRunLoop();
    for (;;)
    {
        if (condition())
            return true;
        auto now = Clock::now();
        if (now >= deadline)
            return false;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
        loop->processEvents(static_cast<uint32>(left > 0 ? left : 1));
    }
}

void EventWait::runFor(uint32 durationMs)
{
    until([] { return false; }, durationMs);
}

} // namespace KVX
