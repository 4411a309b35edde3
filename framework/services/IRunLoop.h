#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IRunnable;
class ITimerTask;

/// The user-interface thread's loop. It belongs to the thread that first asked for it
/// (GetRunLoop); posted work runs there, in posting order.
class IRunLoop : public IUnknown
{
public:
    /// Queues `task` to run on the loop's thread. Any thread. The loop holds a reference to the
    /// task (and to `owner`, if given) until it has run or been cancelled; `owner` names the task
    /// for cancel().
    virtual tresult post(IRunnable* task, IUnknown* owner = nullptr) = 0;
    /// Drops every queued task posted with `owner`. Any thread.
    virtual void cancel(IUnknown* owner) = 0;

    /// Calls `timer` every `intervalMs` milliseconds (at least 1) on the loop's thread until it
    /// is removed; the loop holds a reference meanwhile. Any thread.
    virtual tresult addTimer(ITimerTask* timer, uint32 intervalMs) = 0;
    virtual void removeTimer(ITimerTask* timer) = 0;

    /// Runs what is due: the tasks queued so far, in order, and the timers whose time has come.
    /// When nothing is due, waits up to `maxWaitMs` for something. Returns how many tasks and
    /// timers ran. Loop thread only.
    virtual int32 processEvents(uint32 maxWaitMs) = 0;
    /// Processes events until quit() is called. Loop thread only.
    virtual void run() = 0;
    /// Makes run() return after the task that is running. Any thread.
    virtual void quit() = 0;

    /// Whether the caller is on the loop's thread.
    virtual bool isLoopThread() = 0;

    static constexpr UID kIID = UID::fromString("{E1A7C3D5-9F48-4B2E-A6D0-5C8B3F7E1294}");
};

} // namespace KVX
