#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IRunnable;
class ITimerTask;

/// The user-interface thread's loop. The host names its user-interface thread once, at start,
/// with attachToCurrentThread; posted work runs there, in posting order. Until then no thread
/// owns the loop and nothing is processed.
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

    /// Names the calling thread as the loop's (the user-interface) thread. kResultOk also when
    /// it is named already; kUnexpected when another thread was named before.
    virtual tresult attachToCurrentThread() = 0;
    /// Whether a thread has been named.
    virtual bool hasLoopThread() = 0;
    /// Whether the caller is on the loop's thread (false while none is named). Any thread.
    virtual bool isLoopThread() = 0;

    static constexpr UID kIID = UID::fromString("{E1A7C3D5-9F48-4B2E-A6D0-5C8B3F7E1294}");
};

} // namespace KVX
