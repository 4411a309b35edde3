#include "platform/kvxnet/TransferThread.h"

#include <algorithm>

namespace KVX::Net {

TransferThread& TransferThread::instance()
{
    // Never destroyed: the thread runs until the process ends, and no static destructor may pull
    // the multi handle from under it.
    static TransferThread* thread = new TransferThread;
    return *thread;
}

TransferThread::TransferThread() : multi_(curl_multi_init())
{
    thread_ = std::thread([this] { run(); });
    threadId_ = thread_.get_id();
    thread_.detach();
}

void TransferThread::start(CurlCall* call)
{
    {
        std::lock_guard lock(mutex_);
        toStart_.emplace_back(call);
    }
    curl_multi_wakeup(multi_);
}

void TransferThread::cancel(CurlCall* call)
{
    call->cancel();
    std::unique_lock lock(mutex_);
    toCancel_.emplace_back(call);
    const uint64 ticket = ++cancelsQueued_;
    if (std::this_thread::get_id() == threadId_)
        return;
    curl_multi_wakeup(multi_);
    // The wait is one round of the thread at most: its poll wakes up for this, and its callbacks
    // read from memory or disk and never wait for another thread.
    cancelsTaken_.wait(lock, [&] { return cancelsDone_ >= ticket; });
}

void TransferThread::takeQueued()
{
    std::vector<Ref<CurlCall>> starting, cancelling;
    uint64 cancels = 0;
    {
        std::lock_guard lock(mutex_);
        starting.swap(toStart_);
        cancelling.swap(toCancel_);
        cancels = cancelsQueued_;
    }
    for (Ref<CurlCall>& call : starting)
    {
        if (call->isCancelled())
            continue;
        CURL* handle = call->ownHandle();
        if (!call->configure(handle) || curl_multi_add_handle(multi_, handle) != CURLM_OK)
        {
            call->complete(CURLE_FAILED_INIT);
            call->notifyFinished();
            continue;
        }
        running_[handle] = call;
    }
    for (Ref<CurlCall>& call : cancelling)
    {
        for (auto it = running_.begin(); it != running_.end(); ++it)
            if (it->second == call)
            {
                curl_multi_remove_handle(multi_, it->first);
                running_.erase(it);
                break;
            }
        call->clearListener();
        call->releaseLent();
    }
    if (cancelling.empty())
        return;
    cancelling.clear();
    {
        std::lock_guard lock(mutex_);
        cancelsDone_ = cancels;
    }
    cancelsTaken_.notify_all();
}

void TransferThread::finishDone()
{
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &left))
    {
        if (message->msg != CURLMSG_DONE)
            continue;
        CURL* handle = message->easy_handle;
        CURLcode result = message->data.result;
        auto it = running_.find(handle);
        if (it == running_.end())
            continue;
        Ref<CurlCall> call = it->second;
        running_.erase(it);
        curl_multi_remove_handle(multi_, handle);
        call->complete(result);
        call->notifyFinished();
    }
}

void TransferThread::run()
{
    for (;;)
    {
        takeQueued();
        int stillRunning = 0;
        curl_multi_perform(multi_, &stillRunning);
        finishDone();
        curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
}

} // namespace KVX::Net
