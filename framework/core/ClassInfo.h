#pragma once

#include <string_view>

namespace KVX {

/// Run-time description of an Object class: its registered name and its base class.
struct ClassInfo
{
    const char* name;
    const ClassInfo* parent;

    /// True when this class is `className` or derives from it. Names, not addresses, are
    /// compared, because each module carries its own copy of the framework's class records.
    bool isKindOf(std::string_view className) const;
};

} // namespace KVX
