#pragma once

#include "framework/core/Object.h"
#include "framework/data/Variant.h"
#include "framework/list/ListCell.h"

namespace KVX {

/// One row of a ListViewModel: a title, its own yes/no flag (set from construction) and an
/// icon (the name of a theme image). By default it draws a cell from its detail value for the
/// cell's column and has no tooltips; rows of a particular list derive from it.
/// User-interface thread.
class ListViewItem : public Object
{
    KVX_DECLARE_CLASS(ListViewItem, Object)
public:
    /// The column identifier whose detail is the row's title.
    static constexpr const char* kTitleColumn = "title";

    explicit ListViewItem(const String& title = {}) : title_(title) {}

    const String& title() const { return title_; }
    void setTitle(const String& title) { title_ = title; }
    bool flag() const { return flag_; }
    void setFlag(bool flag) { flag_ = flag; }
    const CString& icon() const { return icon_; }
    void setIcon(std::string_view imageName) { icon_ = CString(imageName); }

    /// The value shown in the column `columnId`; false when the row shows nothing there. The
    /// base answers its title for kTitleColumn.
    virtual bool getDetail(Variant& value, std::string_view columnId) const;
    /// The value behind the cell in column `columnId`, for a host that acts on it; false when
    /// it has none. The base answers the detail.
    virtual bool getValue(Variant& value, std::string_view columnId) const { return getDetail(value, columnId); }
    /// Draws the cell; false when there was nothing to draw. The base draws the detail's text in
    /// the cell's text style.
    virtual bool drawCell(ListCell& cell);
    /// The tooltip of the cell in column `columnId`; false when it has none. The base has none.
    virtual bool getTooltip(String& tooltip, std::string_view columnId) const;

private:
    String title_;
    bool flag_ = true;
    CString icon_;
};

} // namespace KVX
