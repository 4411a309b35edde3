#pragma once

#include "framework/component/Component.h"
#include "framework/component/ObserverConnection.h"
#include "framework/data/Attributes.h"
#include "framework/data/Url.h"
#include "framework/services/IXMLHttpRequest.h"
#include "framework/web/IXHRCallback.h"

namespace KVX::Web {

/// A component that makes HTTP calls one at a time through a request object of the host's web
/// service, handing the events of each call to the callback given for it.
///
/// The callback is held from send until the call's "onloadend" or "onabort"; the request object
/// for the client's whole life. The property "isBusy" tells whether a call is in progress, and
/// "propertyChanged" is signalled whenever that changes. User-interface thread only.
///
/// terminate drops the callback and aborts a call in progress: a callback usually holds its
/// receiver (the client's owner), so a closed component that kept it would keep itself alive,
/// and a reply that arrives after the close reaches nobody.
class XHRClient : public Component
{
    KVX_DECLARE_CLASS(XHRClient, Component)
public:
    explicit XHRClient(std::string_view name);
    ~XHRClient() override;

    /// Starts a call. False, with no other effect, while a call is in progress or when the call
    /// cannot be opened. An empty content type sets no "Content-Type" header.
    bool send(IXHRCallback* callback, std::string_view method, const Url& url, IStream* body,
              std::string_view contentType);
    /// Sends `parameters` as a JSON body ("application/json").
    bool sendAttributes(IXHRCallback* callback, std::string_view method, const Url& url,
                        const Attributes& parameters);

    bool isBusy() const;
    /// The request object (no reference is passed).
    IXMLHttpRequest* request() const { return request_; }

    bool getProperty(Variant& value, std::string_view name) const override;
    tresult terminate() override;
    /// The event slot: every event of the request object arrives here.
    void notify(ISubject* subject, IMessage& message) override;

private:
    Ref<IXMLHttpRequest> request_;
    Ref<IXHRCallback> callback_;
    ObserverConnection requestEvents_;
};

} // namespace KVX::Web
