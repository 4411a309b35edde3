#include "framework/core/ClassRegistry.h"

namespace KVX {

ClassRegistry& ClassRegistry::instance()
{
    static ClassRegistry registry;
    return registry;
}

void ClassRegistry::add(const ClassInfo& info)
{
    if (!find(info.name))
        classes_.push_back(&info);
}

const ClassInfo* ClassRegistry::find(std::string_view className) const
{
    for (const ClassInfo* info : classes_)
        if (className == info->name)
            return info;
    return nullptr;
}

} // namespace KVX
