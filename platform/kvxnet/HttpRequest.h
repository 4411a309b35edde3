#pragma once

#include "framework/component/Subject.h"
#include "framework/core/Object.h"
#include "framework/services/IXMLHttpRequest.h"
#include "platform/kvxnet/CurlCall.h"

namespace KVX::Net {

class WebService;

/// The request object of the web service (see IXMLHttpRequest for the contract).
///
/// Asynchronous calls run on the transfer thread; what it reports is posted to the run loop and
/// delivered here on the user-interface thread, where every event is signalled. Each call has a
/// serial number, and a report that arrives for an earlier call (one that was aborted) is dropped,
/// which keeps "onloadend" the last event of every call. Synchronous calls perform on the caller's
/// thread with an easy handle that the object keeps, so that consecutive calls reuse their
/// connection.
class HttpRequest : public Object, public Web::IXMLHttpRequest, public Subject
{
    KVX_DECLARE_CLASS(HttpRequest, Object)
public:
    explicit HttpRequest(const TransferSettings& settings) : settings_(settings) {}
    ~HttpRequest() override;

    tresult open(const char* method, const char* url, bool async, const char* user, const char* password) override;
    tresult setRequestHeader(const char* name, const char* value) override;
    tresult send(IStream* body, IProgressNotify* progress) override;
    void abort() override;
    bool isBusy() override { return busy_; }
    int32 getReadyState() override { return readyState_; }
    int32 getStatus() override { return status_; }
    IStream* getResponseStream() override;
    const char* getResponseHeader(const char* name) override;
    const char* getErrorText() override { return errorText_.c_str(); }

    KVX_FORWARD_UNKNOWN(Object)

private:
    void emit(const char* event, int64 done = -1, int64 total = -1);
    void setReadyState(int32 state);
    void takeOutcome(CurlCall& call);
    /// Runs `action` on the user-interface thread if the call `serial` is still the current one.
    void postToUi(uint64 serial, std::function<void(HttpRequest&)> action);

    TransferSettings settings_;
    CurlCall::Request pending_;
    bool async_ = true;
    bool opened_ = false;
    bool busy_ = false;
    int32 readyState_ = kUnsent;
    int32 status_ = 0;
    CString errorText_;
    Ref<MemoryStream> response_;
    std::vector<std::pair<CString, CString>> responseHeaders_;
    Ref<CurlCall> current_;
    uint64 serial_ = 0;
    CURL* syncHandle_ = nullptr;
};

} // namespace KVX::Net
