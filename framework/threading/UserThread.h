#pragma once

#include "framework/core/Ref.h"
#include "framework/services/INativeThread.h"
#include "framework/text/CString.h"

#include <atomic>

namespace KVX::Threading {

/// A worker thread owned by an object: a named native thread of the host's system module that
/// runs threadEntry() once. The owner starts and stops it on the user-interface thread; the
/// worker asks shouldTerminate() at the points where it can stop early.
///
/// The deriving class supplies the reference counting: while the worker runs, the native thread
/// holds a reference to the runnable that calls back into the owner, so the owner must outlive
/// it or stop it first (stopThread in its terminate step).
class UserThread
{
public:
    explicit UserThread(std::string_view name) : name_(name) {}
    UserThread(const UserThread&) = delete;
    UserThread& operator=(const UserThread&) = delete;

    const CString& threadName() const { return name_; }

    /// Creates the native thread with `priority` (INativeThread::Priority) and `affinity` (0 for
    /// none) and starts it. False when one exists already or the system cannot make one.
    /// User-interface thread.
    bool startThread(int32 priority = INativeThread::kPriorityNormal, uint64 affinity = 0);
    /// Marks the thread as stopping, waits up to `timeoutMs` for it to return, then, only if it
    /// has not, terminates it; in every case the native thread object is released, and true is
    /// returned when the thread had ended by itself. User-interface thread.
    bool stopThread(uint32 timeoutMs);
    /// Whether a native thread exists: from startThread until stopThread.
    bool hasThread() const { return thread_ != nullptr; }
    /// Whether the owner asked the thread to stop. Any thread.
    bool shouldTerminate() const { return stopping_.load(std::memory_order_relaxed); }

protected:
    ~UserThread();

    /// The worker's work, run once on the new thread.
    virtual void threadEntry() = 0;

private:
    class Entry;

    CString name_;
    Ref<INativeThread> thread_;
    std::atomic<bool> stopping_{false};
};

} // namespace KVX::Threading
