#include "platform/kvxnet/WebService.h"

#include "platform/kvxnet/HttpRequest.h"

namespace KVX::Net {

KVX_DEFINE_CLASS(WebService, Object, "WebService")

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
