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

    static constexpr UID kIID = UID::fromString("{1F6B3D8E-A927-4C05-B4E1-7D3A9C2F6E58}");
};

} // namespace KVX
