#pragma once

#include "framework/core/ObjectArray.h"
#include "framework/list/ItemModel.h"
#include "framework/list/ListViewItem.h"

namespace KVX {

/// The list model of the framework: an ordered array of ListViewItem rows under the columns of
/// ItemModel. A list with its own behaviour derives from it and overrides the operations below
/// marked "overridable"; the host reaches them through IItemModel, which checks row and column
/// indices first, so an override is only ever called with a row that exists.
/// User-interface thread.
class ListViewModel : public ItemModel
{
    KVX_DECLARE_CLASS(ListViewModel, ItemModel)
public:
    ListViewModel() = default;

    // Rows
    /// The row at `index`, or null when out of range (also for -1).
    ListViewItem* getItem(int32 index) const;
    int32 countItems() const { return static_cast<int32>(items_.count()); }
    /// The index of `item`, or -1.
    int32 indexOf(const ListViewItem* item) const { return items_.indexOf(item); }
    /// Appends `item` (retained). Null is refused. Observers are not told; the caller signals
    /// once it has made all its changes.
    bool appendItem(ListViewItem* item);
    /// Takes `item` out of the list and releases it; false when it is not there.
    bool removeFromList(ListViewItem* item);
    void removeAllItems() { items_.removeAll(); }
    /// The attached view's selected rows, in the order they were selected, retained by
    /// `selection`. Rows the view names that no longer exist are left out; without a view the
    /// selection is empty.
    void getSelectedItems(TypedObjectArray<ListViewItem>& selection) const;

    // Overridable, in this order.
    virtual String getItemTitle(ListViewItem& item);
    /// The base answers the item's own icon.
    virtual CString getItemIcon(ListViewItem& item);
    /// The base answers the item's own flag.
    virtual bool getItemFlag(ListViewItem& item);
    /// The base keeps every row.
    virtual bool canRemoveItem(ListViewItem& item);
    virtual bool removeItem(ListViewItem& item);
    /// The base takes no drops.
    virtual bool canInsertData(int32 index, IDragSession* session);
    virtual bool insertData(int32 index, IDragSession* session);
    /// The base opens the cell's editor when the column is editable and a view is attached.
    virtual bool onCellClicked(ListViewItem& item, int32 column);
    /// The base lets the item draw the cell.
    virtual bool drawCell(ListViewItem& item, ListCell& cell);
    /// The base asks the item.
    virtual bool getItemTooltip(ListViewItem& item, String& tooltip, int32 column);

    /// Draws a text in the cell at full intensity or dimmed, in a text style.
    static void drawText(ListCell& cell, const String& text, uint32 fontStyle, bool dimmed)
    {
        cell.drawText(text, fontStyle, dimmed);
    }

    // IItemModel
    int32 countRows() override { return countItems(); }
    IUnknown* getRowObject(int32 row) override;
    tresult getRowTitle(int32 row, const char*& title) override;
    tresult getRowIcon(int32 row, const char*& imageName) override;
    tresult getRowFlag(int32 row, int32& flag) override;
    tresult getTooltip(int32 row, int32 column, const char*& text) override;
    /// The item's value for the column (ListViewItem::getValue): an integer, a double or a text.
    tresult getCellValue(int32 row, int32 column, ValueRecord& value) override;
    tresult canRemoveRow(int32 row) override;
    tresult removeRow(int32 row) override;
    tresult canAcceptDrop(int32 row, IDragSession* session) override;
    /// Refuses, as a whole, a drop that canInsertData would not take.
    tresult acceptDrop(int32 row, IDragSession* session) override;
    tresult clickCell(int32 row, int32 column) override;
    tresult paintCell(int32 row, int32 column, const RectRecord& rect, IGraphicsPort* port, IViewStyle* style) override;

private:
    /// A row index from a host: -1 stands for "not on a row", and so does anything below it.
    static int32 dropIndex(int32 row) { return row < -1 ? -1 : row; }

    TypedObjectArray<ListViewItem> items_{true};
    std::string title_;   // what getRowTitle handed out last
    CString icon_;        // what getRowIcon handed out last
    std::string tooltip_; // what getTooltip handed out last
    Variant value_;       // what getCellValue handed out last
};

} // namespace KVX
