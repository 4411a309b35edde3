#pragma once

#include <string_view>
#include <vector>

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

/// Registers a class when the module's static objects are constructed (see KVX_DEFINE_CLASS).
struct ClassRegistration
{
    explicit ClassRegistration(const ClassInfo& info) { ClassRegistry::instance().add(info); }
};

} // namespace KVX
