#include "platform/kvxnet/HttpRequest.h"

#include "framework/component/Message.h"
#include "framework/core/Runnable.h"
#include "framework/services/SystemServices.h"
#include "platform/kvxnet/TransferThread.h"
#include "platform/kvxnet/WebService.h"

#include <algorithm>
#include <cassert>
#include <strings.h>

namespace KVX::Net {

namespace {

// Asynchronous calls signal their events on the user-interface thread, so they must be made
// there too; a host that has not named that thread is not checked.
[[maybe_unused]] bool onUserInterfaceThread()
{
    IRunLoop* loop = GetRunLoop();
    return !loop->hasLoopThread() || loop->isLoopThread();
}

} // namespace

KVX_DEFINE_CLASS(HttpRequest, Object, "HttpRequest")

namespace {

bool hasLineBreak(std::string_view text)
{
    return text.find_first_of("\r\n") != std::string_view::npos || text.find('\0') != std::string_view::npos;
}

bool isToken(std::string_view name)
{
    if (name.empty())
        return false;
    for (unsigned char c : name)
        if (c <= 32 || c >= 127 || std::string_view("()<>@,;:\\\"/[]?={}").find(static_cast<char>(c)) !=
                                       std::string_view::npos)
            return false;
    return true;
}

} // namespace

HttpRequest::~HttpRequest()
{
    if (current_)
        TransferThread::instance().cancel(current_);
    if (syncHandle_)
        curl_easy_cleanup(syncHandle_);
}

tresult HttpRequest::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, Web::IXMLHttpRequest)
    KVX_QUERY_INTERFACE(iid, object, ISubject)
    return Object::queryInterface(iid, object);
}

tresult HttpRequest::open(const char* method, const char* url, bool async, const char* user, const char* password)
{
    if (busy_)
        return kUnexpected;
    std::string_view m = method ? method : "", u = url ? url : "";
    static constexpr std::string_view kMethods[] = {"GET", "POST", "PUT", "DELETE", "HEAD", "PATCH"};
    if (std::find(std::begin(kMethods), std::end(kMethods), m) == std::end(kMethods))
        return kInvalidArgument;
    if (!(u.starts_with("http://") || u.starts_with("https://")) || hasLineBreak(u) ||
        u.find(' ') != std::string_view::npos)
        return kInvalidArgument;

    pending_ = CurlCall::Request();
    pending_.method = CString(m);
    pending_.url = CString(u);
    pending_.user = CString(user ? user : "");
    pending_.password = CString(password ? password : "");
    pending_.settings = settings_;
    async_ = async;
    opened_ = true;
    status_ = 0;
    response_.reset();
    responseHeaders_.clear();
    errorText_ = CString();
    readyState_ = kOpened;
    if (async_)
        emit("onreadystatechange");
    return kResultOk;
}

tresult HttpRequest::setRequestHeader(const char* name, const char* value)
{
    if (!opened_ || busy_)
        return kUnexpected;
    std::string_view n = name ? name : "", v = value ? value : "";
    if (!isToken(n) || hasLineBreak(v))
        return kInvalidArgument;
    pending_.headers.push_back(CString(n) + ":" + (v.empty() ? std::string_view() : std::string_view(" ")) + v);
    return kResultOk;
}

tresult HttpRequest::send(IStream* body, IProgressNotify* progress)
{
    if (!opened_ || busy_)
        return kUnexpected;
    assert((!async_ || onUserInterfaceThread()) && "an asynchronous call belongs to the user-interface thread");
    if (body)
    {
        // The length is what remains from the current position, when the stream can seek; a
        // stream that cannot is sent chunked. One that seeks away and cannot come back is broken.
        int64 start = body->tell();
        int64 end = start >= 0 ? body->seek(0, IStream::kSeekEnd) : -1;
        if (end >= 0)
        {
            if (end < start || body->seek(start, IStream::kSeekSet) != start)
                return kInvalidArgument;
            pending_.bodyLength = end - start;
        }
    }
    pending_.body = body;
    pending_.progress = progress;
    auto call = makeRef<CurlCall>(std::move(pending_));
    pending_ = CurlCall::Request();
    opened_ = false;

    if (!async_)
    {
        busy_ = true;
        if (!syncHandle_)
            syncHandle_ = curl_easy_init();
        CURLcode code = call->configure(syncHandle_) ? curl_easy_perform(syncHandle_) : CURLE_FAILED_INIT;
        call->complete(code);
        takeOutcome(*call);
        busy_ = false;
        readyState_ = kDone;
        return call->gotResponse() ? kResultOk : kUnexpected;
    }

    busy_ = true;
    current_ = call;
    uint64 serial = ++serial_;
    postToUi(serial, [](HttpRequest& r) { r.emit("onloadstart"); });
    Ref<HttpRequest> self(this);
    CurlCall::Listener listener;
    listener.headersReceived = [self, serial] {
        self->postToUi(serial, [](HttpRequest& r) { r.setReadyState(kHeadersReceived); });
    };
    listener.loading = [self, serial] {
        self->postToUi(serial, [](HttpRequest& r) { r.setReadyState(kLoading); });
    };
    listener.progress = [self, serial](int64 done, int64 total) {
        self->postToUi(serial, [done, total](HttpRequest& r) { r.emit("onprogress", done, total); });
    };
    listener.finished = [self, serial, call = call.get()] {
        Ref<CurlCall> finished(call);
        self->postToUi(serial, [finished](HttpRequest& r) {
            r.takeOutcome(*finished);
            r.current_.reset();
            r.busy_ = false;
            r.setReadyState(kDone);
            r.emit(finished->gotResponse() ? "onload" : "onerror");
            r.emit("onloadend");
        });
    };
    call->setListener(std::move(listener));
    TransferThread::instance().start(call);
    return kResultOk;
}

void HttpRequest::abort()
{
    if (!busy_ || !async_)
        return;
    Ref<HttpRequest> keepAlive(this);
    Ref<CurlCall> call = std::move(current_);
    ++serial_; // reports of the aborted call that are still on their way are dropped
    if (call)
        TransferThread::instance().cancel(call);
    busy_ = false;
    status_ = 0;
    response_.reset();
    responseHeaders_.clear();
    errorText_ = "aborted";
    setReadyState(kDone);
    emit("onabort");
    emit("onloadend");
    readyState_ = kUnsent;
}

IStream* HttpRequest::getResponseStream()
{
    return readyState_ == kDone && response_ ? static_cast<IStream*>(response_.get()) : nullptr;
}

const char* HttpRequest::getResponseHeader(const char* name)
{
    if (!name)
        return nullptr;
    for (auto it = responseHeaders_.rbegin(); it != responseHeaders_.rend(); ++it)
        if (strcasecmp(it->first.c_str(), name) == 0)
            return it->second.c_str();
    return nullptr;
}

void HttpRequest::emit(const char* event, int64 done, int64 total)
{
    auto message = makeRef<Message>(event);
    if (done >= 0)
    {
        message->addArgument(done);
        message->addArgument(total);
    }
    signal(*message);
}

void HttpRequest::setReadyState(int32 state)
{
    readyState_ = state;
    emit("onreadystatechange");
}

void HttpRequest::takeOutcome(CurlCall& call)
{
    status_ = call.status();
    errorText_ = call.gotResponse() ? CString() : call.errorText();
    if (!call.gotResponse() && errorText_ != "cancelled")
        WebService::noteFailure(errorText_);
    else if (call.gotResponse() && status_ >= 500)
        WebService::noteFailure(CString("HTTP status " + std::to_string(status_)));
    response_ = call.gotResponse() ? call.takeResponse() : Ref<MemoryStream>();
    responseHeaders_ = call.takeHeaders();
    if (call.gotResponse())
    {
        const std::string_view body = response_ ? response_->view() : std::string_view();
        WebService::noteAnswer({call.method().c_str(), call.url().c_str(), status_, body.data(),
                                std::min<uint64>(body.size(), Web::AnsweredCall::kMaxBody)});
    }
}

void HttpRequest::postToUi(uint64 serial, std::function<void(HttpRequest&)> action)
{
    Ref<HttpRequest> self(this);
    GetRunLoop()->post(Runnable::make([self, serial, action = std::move(action)] {
        if (self->serial_ == serial && self->busy_)
            action(*self);
    }));
}

} // namespace KVX::Net
