#pragma once

#include "framework/data/Attributes.h"
#include "framework/services/IXMLHttpRequest.h"

namespace Sorvel {

/// One reply of the service: the members of its JSON object. "status_code" 200 is success
/// (403 means the sign-in has expired); "data" carries the payload.
class Response : public KVX::Attributes
{
    KVX_DECLARE_CLASS(Response, KVX::Attributes)
public:
    Response() = default;
    /// Loads the body of a finished request; stays empty when there is none or it is not a JSON
    /// object.
    explicit Response(KVX::Web::IXMLHttpRequest& request);

    /// "status_code": an integer as it is, a double truncated toward zero, anything else 0.
    KVX::int32 getStatusCode() const { return getInt("status_code"); }
    bool isSuccess() const { return getStatusCode() == 200; }
    /// The "data" member when it is an attribute object, else nullptr. No reference is passed.
    KVX::Attributes* getData() const { return getAttributes("data"); }
};

} // namespace Sorvel
