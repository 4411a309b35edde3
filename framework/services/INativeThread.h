#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IRunnable;

/// One operating-system thread that runs one IRunnable once. Made by CreateNativeThread; the
/// caller owns the reference. Configure it, start it, then wait for it. Every operation may be
/// called from any thread except the thread itself, where wait() and terminate() refuse.
///
/// While the runnable runs, the thread holds a reference to it and one to this object, so
/// releasing the last outside reference early neither stops the thread nor frees what it uses.
/// The runnable's reference is dropped as soon as its run() has returned.
class INativeThread : public IUnknown
{
public:
    /// Priorities. The scale is relative to the thread that calls start(), since on Linux the
    /// niceness of a new thread is inherited: raising it above the creator's would need
    /// privileges that a host should not hold, so no higher level is offered.
    enum Priority : int32
    {
        /// Background work: ten steps nicer than the creator (at most 19).
        kPriorityLow = 0,
        /// The creator's own priority; the plug-in's upload worker runs at this level.
        kPriorityNormal = 1,
    };

    /// wait() without a time limit.
    static constexpr uint32 kWaitForever = 0xFFFFFFFFu;

    /// Sets the priority that the thread takes when it starts; the default is kPriorityNormal.
    /// kInvalidArgument for a value that is not a Priority; kUnexpected once started.
    virtual tresult setPriority(int32 priority) = 0;

    /// Restricts the thread to the processors whose bits are set (bit n is processor n);
    /// 0, the default, means no restriction. kInvalidArgument when none of the chosen
    /// processors is available to the process; kUnexpected once started.
    virtual tresult setProcessorAffinity(uint64 mask) = 0;

    /// Starts the thread: it takes its name and priority, then calls runnable->run() once.
    /// kInvalidArgument for a null runnable; kUnexpected when the thread was started before or
    /// the system cannot create one.
    virtual tresult start(IRunnable* runnable) = 0;

    /// Waits until run() has returned, for at most `timeoutMs` milliseconds (kWaitForever: no
    /// limit). Returns true when it has returned, also for a thread that was never started;
    /// false when the time ran out, or when called from the thread itself.
    virtual bool wait(uint32 timeoutMs) = 0;

    /// The last resort for a thread that does not finish. A thread that has finished (or never
    /// started) is cleaned up and kResultOk returned. A thread that still runs is not killed:
    /// cancelling a thread in the middle of C++ code leaves locks held and objects half
    /// changed, and would destroy the process sooner or later. Instead the thread is let go
    /// (detached) with its references, a line naming it goes to standard error, and kUnexpected
    /// says that it could not be stopped. isRunning() and wait() still follow it.
    virtual tresult terminate() = 0;

    /// True from a successful start() until run() has returned.
    virtual bool isRunning() = 0;

    static constexpr UID kIID = UID::fromString("{AF878AD6-3AD9-462D-BB46-E7DFCE4C87E0}");
};

} // namespace KVX
