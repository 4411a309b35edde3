#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// Objects that the host publishes by name for plug-ins to find (a host context, a
/// configuration object). Names are UTF-8 and compared exactly. Any thread.
class IObjectTable : public IUnknown
{
public:
    /// Publishes `object` under `name`; the table holds a reference until it is unregistered.
    /// kInvalidArgument for a null object, an empty name, or a name that is taken.
    virtual tresult registerObject(const char* name, IUnknown* object) = 0;
    /// Removes the object of `name` and drops the table's reference. kInvalidArgument when no
    /// object has that name.
    virtual tresult unregisterObject(const char* name) = 0;
    /// On success `*object` holds a reference to the object of `name` that the caller owns.
    /// kInvalidArgument (and nullptr) for a null `object` or a name that is not registered.
    virtual tresult findObject(const char* name, IUnknown** object) = 0;

    static constexpr UID kIID = UID::fromString("{3D230964-CD27-429B-9541-55642A60929F}");
};

} // namespace KVX
