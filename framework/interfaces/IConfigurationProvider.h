#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IAsyncOperation;
class IAttributeList;

/// The host's source of deployment settings, created through the host's plug-in manager by the
/// class identifier kClassId. A plug-in asks it for a named configuration: the service endpoints
/// and partner identity of the Sorvel client come from here ("ServerURL", "LoginURL",
/// "PartnerID", "PartnerKey" under the name "sorvel"), never from the plug-in itself.
/// User-interface thread.
class IConfigurationProvider : public IUnknown
{
public:
    /// Synchronous: the configuration `name` at once. `description` says for whom (shown by a
    /// host that asks the user). On success `*result` holds a list with a reference the caller
    /// owns and kResultOk is returned; kInvalidArgument (null) for an unknown name; kUnexpected
    /// when the host cannot read its settings.
    virtual tresult getConfiguration(const char* name, const char* description, IAttributeList** result) = 0;
    /// Asynchronous: starts fetching the configuration `name`. On success `*operation` holds an
    /// operation (caller's reference) whose result is the IAttributeList. A provider that cannot
    /// start returns kUnexpected and null; the caller then behaves as for a failed operation.
    virtual tresult fetchConfiguration(const char* name, IAsyncOperation** operation) = 0;

    static constexpr UID kIID = UID::fromString("{8D2A6E41-7C95-4B3F-9E18-C5A0F3D7B264}");
    /// The host's provider class.
    static constexpr UID kClassId = UID::fromString("{F3F76259-8FC6-4ED6-B1FF-45D790F251F3}");
};

} // namespace KVX
