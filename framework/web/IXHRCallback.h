#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {
class IMessage;
}

namespace KVX::Web {

class IXMLHttpRequest;

/// The receiver of the events of one call made through an XHRClient. Called on the
/// user-interface thread with the request object and the event ("onloadend" last).
class IXHRCallback : public IUnknown
{
public:
    virtual void onRequestEvent(IXMLHttpRequest& request, IMessage& message) = 0;

    static constexpr UID kIID = UID::fromString("{E6A4C2B8-1F93-4D57-8B0A-3C9E5D7F1A24}");
};

} // namespace KVX::Web
