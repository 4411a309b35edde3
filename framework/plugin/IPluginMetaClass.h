#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// Describes a class to the host before an instance exists: resources by key (for a gadget,
/// "Class:GadgetResource", the description the host reads).
class IPluginMetaClass : public IUnknown
{
public:
    /// Writes the resource URL of `key` (NUL-terminated) into `url`, at most `size` bytes with the
    /// terminator. kInvalidArgument for an unknown key or a buffer that is too small.
    virtual tresult getResourceLocation(const char* key, char* url, uint32 size) = 0;
    /// The bytes of the resource of `key` ("gadget.xml" for "Class:GadgetResource"), which the
    /// module carries inside itself: `data` stays valid as long as the module is loaded.
    /// kInvalidArgument for an unknown key; kUnexpected when the key names a resource that the
    /// module does not carry.
    virtual tresult getResourceData(const char* key, const void*& data, uint64& size) = 0;

    static constexpr UID kIID = UID::fromString("{1F6B3D8E-A927-4C05-B4E1-7D3A9C2F6E58}");
};

} // namespace KVX
