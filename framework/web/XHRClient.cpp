#include "framework/web/XHRClient.h"

#include "framework/component/Signals.h"
#include "framework/component/ThreadContract.h"
#include "framework/data/Json.h"
#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"
#include "framework/stream/MemoryStream.h"

namespace KVX::Web {

KVX_DEFINE_CLASS(XHRClient, Component, "XHRClient")

namespace {

Ref<ISubject> subjectOf(IXMLHttpRequest* request)
{
    void* subject = nullptr;
    if (!request || request->queryInterface(ISubject::kIID, &subject) != kResultOk)
        return {};
    return Ref<ISubject>::adopt(static_cast<ISubject*>(subject));
}

} // namespace

XHRClient::XHRClient(std::string_view name) : Component(name)
{
    void* request = nullptr;
    if (GetPlugInManager()->createInstance(IXMLHttpRequest::kClassId, IXMLHttpRequest::kIID, &request) == kResultOk)
        request_ = Ref<IXMLHttpRequest>::adopt(static_cast<IXMLHttpRequest*>(request));
    requestEvents_.connect(subjectOf(request_), this);
}

XHRClient::~XHRClient()
{
    requestEvents_.disconnect();
    if (request_ && request_->isBusy())
        request_->abort();
}

tresult XHRClient::terminate()
{
    callback_.reset();
    if (request_ && request_->isBusy())
        request_->abort();
    return Component::terminate();
}

bool XHRClient::isBusy() const
{
    return request_ && request_->isBusy();
}

bool XHRClient::send(IXHRCallback* callback, std::string_view method, const Url& url, IStream* body,
                     std::string_view contentType)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!request_ || request_->isBusy())
        return false;
    callback_ = callback; // the previous call's callback, if any, goes now
    const std::string address = url.toDisplayString().toUtf8();
    const std::string verb(method);
    if (request_->open(verb.c_str(), address.c_str(), true, "", "") != kResultOk)
    {
        callback_.reset();
        return false;
    }
    if (!contentType.empty())
        request_->setRequestHeader("Content-Type", std::string(contentType).c_str());
    if (request_->send(body, nullptr) != kResultOk)
    {
        callback_.reset();
        return false;
    }
    signal(Signals::kPropertyChanged);
    return true;
}

bool XHRClient::sendAttributes(IXHRCallback* callback, std::string_view method, const Url& url,
                               const Attributes& parameters)
{
    auto body = makeRef<MemoryStream>(1024);
    if (!Json::save(*body, parameters))
        return false;
    body->seek(0, IStream::kSeekSet);
    return send(callback, method, url, body, "application/json");
}

bool XHRClient::getProperty(Variant& value, std::string_view name) const
{
    if (name == "isBusy")
    {
        value = isBusy();
        return true;
    }
    return Component::getProperty(value, name);
}

void XHRClient::notify(ISubject* subject, IMessage& message)
{
    if (!subject || requestEvents_.subject() != subject)
        return Component::notify(subject, message);
    Ref<XHRClient> keepAlive(this);
    Ref<IXHRCallback> current = callback_; // the callback may start the next call from here
    if (current)
        current->onRequestEvent(*request_, message);
    if (idOf(message) == "onloadend" || idOf(message) == "onabort")
    {
        if (callback_ == current)
            callback_.reset();
        signal(Signals::kPropertyChanged);
    }
}

} // namespace KVX::Web
