#include "platform/kvxsystem/RunLoop.h"

#include <algorithm>
#include <cassert>

namespace KVX::System {

KVX_DEFINE_CLASS(RunLoop, Object, "RunLoop")

RunLoop::RunLoop() = default;

RunLoop::~RunLoop() = default;

tresult RunLoop::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IRunLoop)
    return Object::queryInterface(iid, object);
}

tresult RunLoop::post(IRunnable* task, IUnknown* owner)
{
    if (!task)
        return kInvalidArgument;
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back({Ref<IRunnable>(task), Ref<IUnknown>(owner)});
    }
    wakeUp_.notify_one();
    return kResultOk;
}

void RunLoop::cancel(IUnknown* owner)
{
    if (!owner)
        return;
    std::deque<Task> dropped; // released outside the lock: a destructor might post
    {
        std::lock_guard lock(mutex_);
        auto keep = std::stable_partition(tasks_.begin(), tasks_.end(),
                                          [&](const Task& t) { return t.owner.get() != owner; });
        std::move(keep, tasks_.end(), std::back_inserter(dropped));
        tasks_.erase(keep, tasks_.end());
    }
}

tresult RunLoop::addTimer(ITimerTask* timer, uint32 intervalMs)
{
    if (!timer)
        return kInvalidArgument;
    auto interval = std::chrono::milliseconds(std::max<uint32>(intervalMs, 1));
    {
        std::lock_guard lock(mutex_);
        timers_.push_back({Ref<ITimerTask>(timer), interval, Clock::now() + interval, nextSerial_++});
    }
    wakeUp_.notify_one();
    return kResultOk;
}

void RunLoop::removeTimer(ITimerTask* timer)
{
    std::vector<Timer> dropped;
    std::lock_guard lock(mutex_);
    auto keep = std::stable_partition(timers_.begin(), timers_.end(),
                                      [&](const Timer& t) { return t.task.get() != timer; });
    std::move(keep, timers_.end(), std::back_inserter(dropped));
    timers_.erase(keep, timers_.end());
}

int32 RunLoop::processEvents(uint32 maxWaitMs)
{
    assert(isLoopThread() && "the run loop is processed on its own thread only");
    const auto deadline = Clock::now() + std::chrono::milliseconds(maxWaitMs);
    size_t taskCount = 0;
    std::vector<std::pair<Ref<ITimerTask>, uint64>> dueTimers;
    {
        std::unique_lock lock(mutex_);
        for (;;)
        {
            auto now = Clock::now();
            for (Timer& timer : timers_)
                if (timer.due <= now)
                {
                    dueTimers.emplace_back(timer.task, timer.serial);
                    timer.due = std::max(timer.due + timer.interval, now + timer.interval / 2);
                }
            taskCount = tasks_.size();
            if (taskCount > 0 || !dueTimers.empty() || quitRequested_ || now >= deadline)
                break;
            auto wakeAt = deadline;
            for (const Timer& timer : timers_)
                wakeAt = std::min(wakeAt, timer.due);
            wakeUp_.wait_until(lock, wakeAt);
        }
    }

    int32 ran = 0;
    // Only the tasks queued before this batch began: tasks they post run in the next batch.
    for (size_t i = 0; i < taskCount; ++i)
    {
        Task task;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty())
                break; // cancelled meanwhile
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task.runnable->run();
        ++ran;
    }
    for (auto& [timer, serial] : dueTimers)
    {
        bool stillRegistered;
        {
            std::lock_guard lock(mutex_);
            stillRegistered = std::any_of(timers_.begin(), timers_.end(),
                                          [&, s = serial](const Timer& t) { return t.serial == s; });
        }
        if (stillRegistered)
        {
            timer->onTimer();
            ++ran;
        }
    }
    return ran;
}

void RunLoop::run()
{
    for (;;)
    {
        {
            std::lock_guard lock(mutex_);
            if (quitRequested_)
            {
                quitRequested_ = false;
                return;
            }
        }
        processEvents(1000);
    }
}

void RunLoop::quit()
{
    {
        std::lock_guard lock(mutex_);
        quitRequested_ = true;
    }
    wakeUp_.notify_one();
}

tresult RunLoop::attachToCurrentThread()
{
    std::thread::id none;
    const std::thread::id self = std::this_thread::get_id();
    if (loopThread_.compare_exchange_strong(none, self) || none == self)
        return kResultOk;
    return kUnexpected;
}

bool RunLoop::hasLoopThread()
{
    return loopThread_.load() != std::thread::id();
}

bool RunLoop::isLoopThread()
{
    return hasLoopThread() && std::this_thread::get_id() == loopThread_.load();
}

} // namespace KVX::System
