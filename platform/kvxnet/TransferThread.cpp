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
    {
        std::lock_guard lock(mutex_);
        toCancel_.emplace_back(call);
    }
    curl_multi_wakeup(multi_);
}

void TransferThread::takeQueued()
{
    std::vector<Ref<CurlCall>> starting, cancelling;
    {
        std::lock_guard lock(mutex_);
        starting.swap(toStart_);
        cancelling.swap(toCancel_);
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
        for (auto it = running_.begin(); it != running_.end(); ++it)
            if (it->second == call)
            {
                curl_multi_remove_handle(multi_, it->first);
                it->second->clearListener();
                running_.erase(it);
                break;
            }
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
