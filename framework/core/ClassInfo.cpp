#include "framework/core/ClassInfo.h"

namespace KVX {

bool ClassInfo::isKindOf(std::string_view className) const
{
    for (const ClassInfo* info = this; info; info = info->parent)
        if (className == info->name)
            return true;
    return false;
}

} // namespace KVX
