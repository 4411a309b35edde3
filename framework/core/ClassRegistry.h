#pragma once

#include "framework/core/ClassInfo.h"

#include <string_view>
#include <vector>

namespace KVX {

/// The classes of this module by name, so that an object can be recognised by class (a dragged
/// row, an attribute list inside a Variant) and a class can be found by the name a file gives.
class ClassRegistry
{
public:
    static ClassRegistry& instance();

    void add(const ClassInfo& info);
    const ClassInfo* find(std::string_view className) const;
    const std::vector<const ClassInfo*>& classes() const { return classes_; }

private:
    std::vector<const ClassInfo*> classes_;
};

} // namespace KVX
