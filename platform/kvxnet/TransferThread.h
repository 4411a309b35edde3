#pragma once

#include "platform/kvxnet/CurlCall.h"

#include <curl/curl.h>

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
    /// Stops `call` without a finished() report. Any thread.
    void cancel(CurlCall* call);

private:
    TransferThread();
    void run();
    void takeQueued();
    void finishDone();

    CURLM* multi_;
    std::mutex mutex_;
    std::vector<Ref<CurlCall>> toStart_;
    std::vector<Ref<CurlCall>> toCancel_;
    std::map<CURL*, Ref<CurlCall>> running_; // transfer thread only
    std::thread thread_;
};

} // namespace KVX::Net
