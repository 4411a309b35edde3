#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// A view that shows an item model (the host's list view), as the model sees it: the model
/// reads the selection, asks for redraws and selects rows, and never learns how the view draws.
/// The view tells the model about selection changes (IItemModel::onSelectionChanged).
///
/// User-interface thread. Rows are counted from 0 in the model's order.
class IItemView : public IUnknown
{
public:
    /// The number of selected rows.
    virtual int32 countSelectedRows() = 0;
    /// The row selected at position `index` of the selection, in the order the user selected
    /// them; -1 when `index` is out of range. A view reports what it holds, which may name rows
    /// that the model has removed since; the model checks.
    virtual int32 getSelectedRow(int32 index) = 0;
    /// Makes `row` the only selected row and scrolls it into sight, then tells the model as for
    /// any selection change. kInvalidArgument, selection unchanged, when the row does not exist.
    virtual tresult selectRow(int32 row) = 0;
    /// Asks for the whole view to be drawn again soon (not during the call).
    virtual tresult invalidate() = 0;
    /// Opens the editor of a cell (a click in an editable column). kInvalidArgument when the
    /// cell does not exist or the view cannot edit.
    virtual tresult editCell(int32 row, int32 column) = 0;

    static constexpr UID kIID = UID::fromString("{1B6D4F83-9E27-4A5C-B3D8-62F0E9A1C745}");
};

} // namespace KVX
