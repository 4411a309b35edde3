#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/web/IXHRCallback.h"

namespace KVX::Web {

/// Forwards every event of a call to a member function of a T object, which it holds by a
/// counted reference: the receiver stays alive as long as the call may still reach it.
template <class T>
class XHRCallback : public Object, public IXHRCallback
{
public:
    using Handler = void (T::*)(IXMLHttpRequest& request, IMessage& message);

    XHRCallback(T* target, Handler handler) : target_(target), handler_(handler) {}

    void onRequestEvent(IXMLHttpRequest& request, IMessage& message) override
    {
        (target_.get()->*handler_)(request, message);
    }

    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IXHRCallback)
        return Object::queryInterface(iid, object);
    }

private:
    Ref<T> target_;
    Handler handler_;
};

} // namespace KVX::Web
