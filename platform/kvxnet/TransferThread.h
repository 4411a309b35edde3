#pragma once

#include "platform/kvxnet/CurlCall.h"

#include <curl/curl.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace KVX::Net {

/// Runs the asynchronous calls of the process on one thread with a libcurl multi handle, which
/// also keeps the connections that calls to the same server reuse. Calls are handed over (and
/// taken back) through a queue; the easy handles and the multi handle are only touched here.
class TransferThread
{
public:
    /// The process-wide transfer thread, started on first use.
    static TransferThread& instance();

    /// Starts `call` on its own easy handle. The call's listener is invoked on this thread; its
    /// finished() comes once, after complete(). Any thread.
    void start(CurlCall* call);
    /// Stops `call` without a finished() report. Any thread. Returns once the transfer thread has
    /// taken the call out and let go of what the caller lent it (its body and progress objects),
    /// so that the caller may then be unloaded; on the transfer thread itself that happens at the
    /// top of its next round.
    void cancel(CurlCall* call);

private:
    TransferThread();
    void run();
    void takeQueued();
    void finishDone();

    CURLM* multi_;
    std::mutex mutex_;
    std::condition_variable cancelsTaken_;
    std::vector<Ref<CurlCall>> toStart_;
    std::vector<Ref<CurlCall>> toCancel_;
    uint64 cancelsQueued_ = 0; // cancels handed over so far
    uint64 cancelsDone_ = 0;   // of those, the ones taken out
    std::thread::id threadId_;
    std::map<CURL*, Ref<CurlCall>> running_; // transfer thread only
    std::thread thread_;
};

} // namespace KVX::Net
