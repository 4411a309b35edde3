#include "framework/list/ListViewItem.h"

namespace KVX {

KVX_DEFINE_CLASS(ListViewItem, Object, "ListViewItem")

bool ListViewItem::getDetail(Variant& value, std::string_view columnId) const
{
    if (columnId != kTitleColumn)
        return false;
    value = title_;
    return true;
}

bool ListViewItem::drawCell(ListCell& cell)
{
    Variant detail;
    if (!getDetail(detail, cell.columnId()))
        return false;
    const String text = detail.toString();
    if (text.isEmpty())
        return false;
    cell.drawText(text, cell.fontStyle(), false);
    return true;
}

bool ListViewItem::getTooltip(String&, std::string_view) const
{
    return false;
}

} // namespace KVX
