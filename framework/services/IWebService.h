#pragma once

#include "framework/core/IUnknown.h"

namespace KVX::Web {

class IXMLHttpRequest;
class ICallObserver;

/// The host's HTTP service: creates request objects and holds the settings they share.
class IWebService : public IUnknown
{
public:
    /// A new request object; the caller owns the reference. Any thread.
    virtual tresult createRequest(IXMLHttpRequest** request) = 0;

    /// An additional file of trusted certificate authorities (PEM), trusted beside the system's;
    /// null or empty for the system's only. Applies to calls opened afterwards.
    virtual void setCertificateAuthorityFile(const char* path) = 0;
    /// Connect time-out and stall time-out (a call ends when no byte moved for that long), in
    /// milliseconds; 0 keeps the current value. Applies to calls opened afterwards.
    virtual void setTimeouts(uint32 connectMs, uint32 stallMs) = 0;

    /// The last call since the previous ask that got no usable answer from its server: none at all
    /// (its error text, such as a refused connection or a time-out) or one of HTTP status 500 or
    /// more ("HTTP status 503"). A cancelled or aborted call does not count. Copies the text,
    /// NUL-terminated and cut to fit, into `buffer` and forgets it; returns the text's length, 0
    /// when there was none. Hosts use it to tell an unreachable service from a refusal. Any thread.
    virtual uint32 takeLastFailure(char* buffer, uint32 size) = 0;
    /// Registers the host's observer of answered calls (retained until replaced); null for
    /// none. Any thread.
    virtual void setCallObserver(ICallObserver* observer) = 0;

    static constexpr UID kIID = UID::fromString("{C2F7A9D4-5B18-4E3C-8D62-1A9E7B5F0C38}");
};

} // namespace KVX::Web
