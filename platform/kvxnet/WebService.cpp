#include "platform/kvxnet/WebService.h"

#include "platform/kvxnet/HttpRequest.h"

#include <cstdlib>

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

void WebService::setTimeouts(uint32 connectMs, uint32 stallMs)
{
    std::lock_guard lock(mutex_);
    if (connectMs)
        settings_.connectTimeoutMs = connectMs;
    if (stallMs)
        settings_.stallTimeoutMs = stallMs;
}

} // namespace KVX::Net
