#pragma once

#include "framework/core/Ref.h"
#include "framework/core/UID.h"
#include "framework/data/AttributeList.h"

namespace KVX {

/// A class as the module registers it: identifier, category, display name, the function that
/// creates an instance, and optional attributes.
struct ClassRecord
{
    /// Returns a new object's main interface with the caller owning its reference, or nullptr.
    using CreateFunction = IUnknown* (*)();

    UID classId;
    CString category;
    CString name;
    CreateFunction create = nullptr;
    Ref<AttributeList> attributes;
};

} // namespace KVX
