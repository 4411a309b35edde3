#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IRunLoop.h"
#include "framework/services/IRunnable.h"
#include "framework/services/ITimerTask.h"

#include <chrono>
#include <condition_variable>
#include <atomic>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace KVX::System {

/// The user-interface thread's loop: a queue of tasks that any thread may post to, and timers.
/// One mutex guards the queue and the timers; tasks and timers run with it released, so they may
/// post, cancel and add timers themselves.
class RunLoop : public Object, public IRunLoop
{
    KVX_DECLARE_CLASS(RunLoop, Object)
public:
    RunLoop();
    ~RunLoop() override;

    tresult post(IRunnable* task, IUnknown* owner) override;
    void cancel(IUnknown* owner) override;
    tresult addTimer(ITimerTask* timer, uint32 intervalMs) override;
    void removeTimer(ITimerTask* timer) override;
    int32 processEvents(uint32 maxWaitMs) override;
    void run() override;
    void quit() override;
    tresult attachToCurrentThread() override;
    bool hasLoopThread() override;
    bool isLoopThread() override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    using Clock = std::chrono::steady_clock;

    struct Task
    {
        Ref<IRunnable> runnable;
        Ref<IUnknown> owner;
    };
    struct Timer
    {
        Ref<ITimerTask> task;
        Clock::duration interval;
        Clock::time_point due;
        uint64 serial; // tells a timer from a later one at the same address
    };

    std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::deque<Task> tasks_;
    std::vector<Timer> timers_;
    uint64 nextSerial_ = 1;
    bool quitRequested_ = false;
    std::atomic<std::thread::id> loopThread_{};
};

} // namespace KVX::System
