#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/IAttributeList.h"

namespace KVX {

/// The module's version as the host reads it. Plain text in fixed buffers, so that no library
/// type crosses the module boundary.
struct VersionDescription
{
    char title[64];
    char version[32];
    char vendor[64];
    char legalNotice[128];
    char website[128];
};

/// One class that a module offers.
struct ClassDescription
{
    UID classId;
    char category[32];
    char name[64];
    /// Optional class attributes ("Class:MetaClassID"), or null. Owned by the factory, no
    /// reference passed; valid as long as the host holds the factory.
    IAttributeList* attributes;
};

/// What a module's single exported entry point returns: the list of its classes and a way to
/// create them. Called on the host's user-interface thread.
class IClassFactory : public IUnknown
{
public:
    virtual tresult getVersion(VersionDescription& version) = 0;
    virtual int32 countClasses() = 0;
    /// kInvalidArgument for an index out of range.
    virtual tresult getClassDescription(int32 index, ClassDescription& description) = 0;
    /// Creates an instance of `classId` and queries it for `iid`. On success `*object` holds a
    /// reference that the caller owns. kInvalidArgument for an unknown class or interface.
    virtual tresult createInstance(const UID& classId, const UID& iid, void** object) = 0;

    static constexpr UID kIID = UID::fromString("{8B2F6D4A-3E71-4C95-A0D8-6F1B9E3C5A27}");
};

} // namespace KVX
