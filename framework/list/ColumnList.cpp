#include "framework/list/ColumnList.h"

namespace KVX {

void ColumnList::addColumn(int32 width, const String& title, std::string_view identifier, uint32 flags)
{
    columns_.push_back({width, title, CString(identifier), flags});
}

const ColumnList::Column* ColumnList::at(int32 index) const
{
    return index >= 0 && index < count() ? &columns_[static_cast<size_t>(index)] : nullptr;
}

int32 ColumnList::indexOf(std::string_view identifier) const
{
    for (int32 index = 0; index < count(); ++index)
        if (columns_[static_cast<size_t>(index)].identifier == identifier)
            return index;
    return -1;
}

} // namespace KVX
