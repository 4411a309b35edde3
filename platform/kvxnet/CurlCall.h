#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IProgressNotify.h"
#include "framework/stream/IStream.h"
#include "framework/stream/MemoryStream.h"
#include "platform/kvxnet/TransferSettings.h"

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace KVX::Net {

/// One HTTP call on one libcurl easy handle: the options, the callbacks that stream the body in
/// and the response out, and the outcome. The handle is used by one thread at a time: the caller's
/// for a synchronous call, the transfer thread's for an asynchronous one (handed over through the
/// transfer thread's queue). libcurl's error codes are turned into text here and nowhere else.
class CurlCall : public Object
{
    KVX_DECLARE_CLASS(CurlCall, Object)
public:
    struct Request
    {
        CString method;
        CString url;
        CString user;
        CString password;
        std::vector<CString> headers; // "Name: value"
        Ref<IStream> body;            // may be null
        int64 bodyLength = -1;        // -1: unknown, sent chunked
        Ref<IProgressNotify> progress;
        TransferSettings settings;
    };

    /// What an asynchronous call reports while it runs, called on the transfer thread.
    struct Listener
    {
        std::function<void()> headersReceived;
        std::function<void()> loading;
        std::function<void(int64 done, int64 total)> progress;
        std::function<void()> finished;
    };

    explicit CurlCall(Request request);
    ~CurlCall() override;

    /// Sets `handle` up for this call (after a reset, so a reused handle keeps only its
    /// connections). False, with the error text set, when libcurl refuses an option.
    bool configure(CURL* handle);
    /// A handle of the call's own, for an asynchronous call; released with the call.
    CURL* ownHandle();

    /// Takes the outcome of the transfer (the code curl_easy_perform or the multi handle gave),
    /// and lets go of what the caller lent (see releaseLent), before the caller hears of the end.
    void complete(CURLcode code);
    /// Drops the caller's body and progress objects. Their code may belong to a library that is
    /// unloaded as soon as the caller knows the call is over, so they are released before it can
    /// know: when the call completes or its cancel is taken, on the thread that ran it.
    void releaseLent()
    {
        request_.body.reset();
        request_.progress.reset();
    }
    /// Makes the running transfer stop at its next callback. Any thread.
    void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
    bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

    void setListener(Listener listener) { listener_ = std::move(listener); }
    /// Drops the listener without a report (the call was cancelled).
    void clearListener() { listener_ = {}; }
    /// Reports the end to the listener once and drops it, with whatever it held.
    void notifyFinished()
    {
        Listener listener = std::move(listener_);
        listener_ = {};
        if (listener.finished)
            listener.finished();
    }

    // The outcome, read after complete() by the thread that learnt of it.
    bool gotResponse() const { return gotResponse_; }
    const CString& method() const { return request_.method; }
    const CString& url() const { return request_.url; }
    int32 status() const { return status_; }
    const CString& errorText() const { return errorText_; }
    Ref<MemoryStream> takeResponse() { return std::move(response_); }
    std::vector<std::pair<CString, CString>> takeHeaders() { return std::move(headers_); }

private:
    static size_t onRead(char* buffer, size_t size, size_t count, void* self);
    static int onSeek(void* self, curl_off_t offset, int origin);
    static int onRequestReady(void* self, char* remoteAddress, char* localAddress, int remotePort, int localPort);
    static size_t onWrite(char* data, size_t size, size_t count, void* self);
    static size_t onHeader(char* data, size_t size, size_t count, void* self);
    static int onProgress(void* self, curl_off_t downloadTotal, curl_off_t downloadNow, curl_off_t uploadTotal,
                          curl_off_t uploadNow);

    bool stopRequested();

    Request request_;
    int64 bodyStart_ = 0;
    CURL* ownHandle_ = nullptr;
    CURL* handle_ = nullptr; // the handle configured for this call
    curl_slist* headerList_ = nullptr;
    Listener listener_;
    std::atomic<bool> cancelled_{false};
    bool cancelledByUser_ = false;
    bool tooLarge_ = false;
    bool bodyFailed_ = false;
    int sends_ = 0;          // how often libcurl was about to send the request
    bool notResent_ = false; // a second send was refused
    bool headersSignalled_ = false;
    bool loadingSignalled_ = false;
    std::chrono::steady_clock::time_point lastProgressReport_{};
    std::chrono::steady_clock::time_point lastProgressNotified_{};
    /// When bytes last moved in either direction, and the counts then: a call on which nothing
    /// moves for the stall time-out is ended (stalled_).
    std::chrono::steady_clock::time_point lastMoved_{};
    curl_off_t movedDown_ = -1;
    curl_off_t movedUp_ = -1;
    bool stalled_ = false;

    bool gotResponse_ = false;
    int32 status_ = 0;
    CString errorText_;
    Ref<MemoryStream> response_;
    std::vector<std::pair<CString, CString>> headers_;
    char errorBuffer_[CURL_ERROR_SIZE] = {};
};

} // namespace KVX::Net
