#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// Classes that the host offers to plug-ins, created by class identifier. The host registers
/// them at start (its configuration provider, its audio-file class); a plug-in creates
/// instances when it needs them. Any thread.
class IPlugInManager : public IUnknown
{
public:
    /// Makes a new object with one reference, which the caller of the function owns, or returns
    /// null when it cannot. Called on the thread that asks for the instance, without any lock
    /// of the manager held.
    using CreateFunction = IUnknown* (*)();

    /// Registers a class under `classId` with a display name (UTF-8, for finding it by name).
    /// kInvalidArgument for a null identifier or function, an empty name, or an identifier or
    /// name that is registered already.
    virtual tresult registerClass(const UID& classId, CreateFunction create, const char* name) = 0;
    /// Removes a class. kInvalidArgument when it is not registered.
    virtual tresult unregisterClass(const UID& classId) = 0;

    /// Creates an instance of `classId` and queries it for `iid`. On success `*object` holds a
    /// reference that the caller owns. kInvalidArgument (and nullptr) for a null `object`, an
    /// unknown class, or a class without that interface; kUnexpected when the class's function
    /// made no object.
    virtual tresult createInstance(const UID& classId, const UID& iid, void** object) = 0;

    /// The identifier of the class registered under `name` (compared exactly).
    /// kInvalidArgument, with `classId` untouched, when there is none.
    virtual tresult findClass(const char* name, UID& classId) = 0;

    static constexpr UID kIID = UID::fromString("{3BD44789-2BEA-4904-822C-DE0E40868DF7}");
};

} // namespace KVX
