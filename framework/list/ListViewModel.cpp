#include "framework/list/ListViewModel.h"

#include "framework/component/ThreadContract.h"

namespace KVX {

KVX_DEFINE_CLASS(ListViewModel, ItemModel, "ListViewModel")

ListViewItem* ListViewModel::getItem(int32 index) const
{
    return index >= 0 ? items_.at(static_cast<size_t>(index)) : nullptr;
}

bool ListViewModel::appendItem(ListViewItem* item)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    return items_.add(item);
}

bool ListViewModel::removeFromList(ListViewItem* item)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    return items_.remove(item);
}

void ListViewModel::getSelectedItems(TypedObjectArray<ListViewItem>& selection) const
{
    IItemView* attached = view();
    if (!attached)
        return;
    const int32 count = attached->countSelectedRows();
    for (int32 index = 0; index < count; ++index)
        if (ListViewItem* item = getItem(attached->getSelectedRow(index)))
            selection.add(item);
}

String ListViewModel::getItemTitle(ListViewItem& item)
{
    return item.title();
}

CString ListViewModel::getItemIcon(ListViewItem& item)
{
    return item.icon();
}

bool ListViewModel::getItemFlag(ListViewItem& item)
{
    return item.flag();
}

bool ListViewModel::canRemoveItem(ListViewItem&)
{
    return false;
}

bool ListViewModel::removeItem(ListViewItem&)
{
    return false;
}

bool ListViewModel::canInsertData(int32, IDragSession*)
{
    return false;
}

bool ListViewModel::insertData(int32, IDragSession*)
{
    return false;
}

bool ListViewModel::onCellClicked(ListViewItem& item, int32 column)
{
    const ColumnList::Column* info = columns().at(column);
    if (!info || !(info->flags & ColumnList::kEditable) || !view())
        return false;
    return view()->editCell(indexOf(&item), column) == kResultOk;
}

bool ListViewModel::drawCell(ListViewItem& item, ListCell& cell)
{
    return item.drawCell(cell);
}

bool ListViewModel::getItemTooltip(ListViewItem& item, String& tooltip, int32 column)
{
    const ColumnList::Column* info = columns().at(column);
    return info && item.getTooltip(tooltip, info->identifier);
}

IUnknown* ListViewModel::getRowObject(int32 row)
{
    return getItem(row);
}

tresult ListViewModel::getRowTitle(int32 row, const char*& title)
{
    ListViewItem* item = getItem(row);
    if (!item)
        return kInvalidArgument;
    title_ = getItemTitle(*item).toUtf8();
    title = title_.c_str();
    return kResultOk;
}

tresult ListViewModel::getRowIcon(int32 row, const char*& imageName)
{
    ListViewItem* item = getItem(row);
    if (!item)
        return kInvalidArgument;
    icon_ = getItemIcon(*item);
    imageName = icon_.c_str();
    return kResultOk;
}

tresult ListViewModel::getRowFlag(int32 row, int32& flag)
{
    ListViewItem* item = getItem(row);
    if (!item)
        return kInvalidArgument;
    flag = getItemFlag(*item) ? 1 : 0;
    return kResultOk;
}

tresult ListViewModel::getTooltip(int32 row, int32 column, const char*& text)
{
    ListViewItem* item = getItem(row);
    String tooltip;
    if (!item || !columns().at(column) || !getItemTooltip(*item, tooltip, column))
        return kInvalidArgument;
    tooltip_ = tooltip.toUtf8();
    text = tooltip_.c_str();
    return kResultOk;
}

tresult ListViewModel::getCellValue(int32 row, int32 column, ValueRecord& value)
{
    ListViewItem* item = getItem(row);
    const ColumnList::Column* info = columns().at(column);
    Variant found;
    if (!item || !info || !item->getValue(found, info->identifier) || found.isEmpty() || found.isObject())
        return kInvalidArgument;
    value_ = std::move(found);
    value_.toRecord(value);
    return kResultOk;
}

tresult ListViewModel::canRemoveRow(int32 row)
{
    ListViewItem* item = getItem(row);
    return item && canRemoveItem(*item) ? kResultOk : kInvalidArgument;
}

tresult ListViewModel::removeRow(int32 row)
{
    // The removal may release the row; it stays alive until the call is over.
    Ref<ListViewItem> item = getItem(row);
    return item && removeItem(*item) ? kResultOk : kInvalidArgument;
}

tresult ListViewModel::canAcceptDrop(int32 row, IDragSession* session)
{
    return canInsertData(dropIndex(row), session) ? kResultOk : kInvalidArgument;
}

tresult ListViewModel::acceptDrop(int32 row, IDragSession* session)
{
    const int32 index = dropIndex(row);
    if (!canInsertData(index, session))
        return kInvalidArgument;
    return insertData(index, session) ? kResultOk : kInvalidArgument;
}

tresult ListViewModel::clickCell(int32 row, int32 column)
{
    Ref<ListViewItem> item = getItem(row);
    if (!item || !columns().at(column))
        return kInvalidArgument;
    return onCellClicked(*item, column) ? kResultOk : kInvalidArgument;
}

tresult ListViewModel::paintCell(int32 row, int32 column, const RectRecord& rect, IGraphicsPort* port,
                                 IViewStyle* style)
{
    ListViewItem* item = getItem(row);
    const ColumnList::Column* info = columns().at(column);
    if (!item || !info || !port)
        return kInvalidArgument;
    ListCell cell(*port, rect, style, column, info->identifier);
    drawCell(*item, cell);
    return kResultOk;
}

} // namespace KVX
