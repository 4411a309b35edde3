#pragma once

#include "framework/web/XHRCallback.h"

namespace KVX::Web {

/// For classes that receive the events of their calls in member functions: makes the callback
/// objects that route a call's events to one of them (`callback(&Manager::onTitlesReply)`).
template <class T>
class XHRClientCallback
{
public:
    using Handler = typename XHRCallback<T>::Handler;

protected:
    Ref<IXHRCallback> callback(Handler handler)
    {
        auto adapter = makeRef<XHRCallback<T>>(static_cast<T*>(this), handler);
        return Ref<IXHRCallback>(static_cast<IXHRCallback*>(adapter.get()));
    }

    ~XHRClientCallback() = default;
};

} // namespace KVX::Web
