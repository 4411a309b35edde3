#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/INativeThread.h"
#include "framework/services/IRunnable.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace KVX::System {

/// INativeThread on POSIX threads. One mutex guards the state; the thread reports the end of
/// run() through a condition variable, and the pthread is joined (or detached) exactly once.
class NativeThread : public Object, public INativeThread
{
    KVX_DECLARE_CLASS(NativeThread, Object)
public:
    /// The longest name the kernel keeps, in bytes, without the terminator.
    static constexpr size_t kMaxNameBytes = 15;

    /// `name` must be non-empty; it is cut to kMaxNameBytes at a character boundary.
    explicit NativeThread(std::string_view name);
    ~NativeThread() override;

    tresult setPriority(int32 priority) override;
    tresult setProcessorAffinity(uint64 mask) override;
    tresult start(IRunnable* runnable) override;
    bool wait(uint32 timeoutMs) override;
    tresult terminate() override;
    bool isRunning() override;
    KVX_FORWARD_UNKNOWN(Object)

    const std::string& name() const { return name_; }

private:
    enum class State
    {
        Created,
        Running,
        Finished
    };

    static void* entry(void* self);
    void runOnThread();
    bool isThisThread() const;

    const std::string name_;
    std::mutex mutex_;
    std::condition_variable finished_;
    State state_ = State::Created;
    int32 priority_ = kPriorityNormal;
    uint64 affinity_ = 0;
    Ref<IRunnable> runnable_;
    pthread_t handle_{};
    bool joinable_ = false; // the pthread still has to be joined or detached
};

} // namespace KVX::System
