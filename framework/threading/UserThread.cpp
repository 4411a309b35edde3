#include "framework/threading/UserThread.h"

#include "framework/core/Runnable.h"
#include "framework/services/SystemServices.h"

namespace KVX::Threading {

UserThread::~UserThread()
{
    // An owner that is going away must have stopped its worker; a thread still running here
    // would call into a destroyed object, so it is stopped now as the last resort.
    if (thread_)
        stopThread(0);
}

bool UserThread::startThread(int32 priority, uint64 affinity)
{
    if (thread_)
        return false;
    Ref<INativeThread> thread = Ref<INativeThread>::adopt(CreateNativeThread(name_.c_str()));
    if (!thread || thread->setPriority(priority) != kResultOk)
        return false;
    if (affinity != 0 && thread->setProcessorAffinity(affinity) != kResultOk)
        return false;
    stopping_.store(false, std::memory_order_relaxed);
    auto entry = Runnable::make([this] { threadEntry(); });
    if (thread->start(entry) != kResultOk)
        return false;
    thread_ = std::move(thread);
    return true;
}

bool UserThread::stopThread(uint32 timeoutMs)
{
    if (!thread_)
        return true;
    stopping_.store(true, std::memory_order_relaxed);
    const bool ended = thread_->wait(timeoutMs);
    if (!ended)
        thread_->terminate();
    thread_.reset();
    return ended;
}

} // namespace KVX::Threading
