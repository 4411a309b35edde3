#pragma once

#include "framework/interfaces/IItemModel.h"
#include "framework/text/String.h"

#include <vector>

namespace KVX {

/// The columns of a list model, in the order the view shows them: width in pixels, header
/// title, the identifier by which the model's code names the column, and flags.
class ColumnList
{
public:
    enum Flags : uint32
    {
        kSizable = ColumnRecord::kSizable,
        kEditable = ColumnRecord::kEditable,
    };

    struct Column
    {
        int32 width;
        String title;
        CString identifier;
        uint32 flags;
    };

    void addColumn(int32 width, const String& title, std::string_view identifier, uint32 flags = 0);
    void removeAll() { columns_.clear(); }

    int32 count() const { return static_cast<int32>(columns_.size()); }
    /// The column at `index`, or null when out of range.
    const Column* at(int32 index) const;
    /// The index of the column called `identifier`, or -1.
    int32 indexOf(std::string_view identifier) const;

private:
    std::vector<Column> columns_;
};

} // namespace KVX
