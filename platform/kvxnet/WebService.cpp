#include "platform/kvxnet/WebService.h"

#include "platform/kvxnet/HttpRequest.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace KVX::Net {

KVX_DEFINE_CLASS(WebService, Object, "WebService")

WebService::WebService()
{
    // For measuring other sizes with the upload benchmark; not a setting for users.
    if (const char* kib = std::getenv("SORVEL_UPLOAD_BUFFER_KIB"))
    {
        long value = std::atol(kib);
        if (value >= 16 && value <= 2048) // the range libcurl accepts
            settings_.uploadBufferSize = value * 1024;
    }
}

tresult WebService::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, Web::IWebService)
    return Object::queryInterface(iid, object);
}

tresult WebService::createRequest(Web::IXMLHttpRequest** request)
{
    if (!request)
        return kInvalidArgument;
    TransferSettings settings;
    {
        std::lock_guard lock(mutex_);
        settings = settings_;
    }
    *request = static_cast<Web::IXMLHttpRequest*>(makeRef<HttpRequest>(settings).detach());
    return kResultOk;
}

void WebService::setCertificateAuthorityFile(const char* path)
{
    std::lock_guard lock(mutex_);
    settings_.certificateAuthorityFile = CString(path ? path : "");
}

namespace {

std::mutex failureMutex;
CString lastFailure;
std::mutex observerMutex;
Ref<Web::ICallObserver> callObserver;

} // namespace

void WebService::noteFailure(const CString& text)
{
    std::lock_guard lock(failureMutex);
    lastFailure = text;
}

uint32 WebService::takeLastFailure(char* buffer, uint32 size)
{
    std::lock_guard lock(failureMutex);
    const std::string_view text = lastFailure.view();
    if (buffer && size > 0)
    {
        const size_t copied = std::min<size_t>(text.size(), size - 1);
        std::memcpy(buffer, text.data(), copied);
        buffer[copied] = '\0';
    }
    const auto length = static_cast<uint32>(text.size());
    lastFailure = CString();
    return length;
}

void WebService::setCallObserver(Web::ICallObserver* observer)
{
    std::lock_guard lock(observerMutex);
    callObserver = observer;
}

void WebService::noteAnswer(const Web::AnsweredCall& call)
{
    Ref<Web::ICallObserver> observer;
    {
        std::lock_guard lock(observerMutex);
        observer = callObserver;
    }
    // Told outside the lock: an observer may replace itself.
    if (observer)
        observer->onCallAnswered(call);
}

void WebService::setTimeouts(uint32 connectMs, uint32 stallMs)
{
    std::lock_guard lock(mutex_);
    if (connectMs)
        settings_.connectTimeoutMs = connectMs;
    if (stallMs)
        settings_.stallTimeoutMs = stallMs;
}

} // namespace KVX::Net
