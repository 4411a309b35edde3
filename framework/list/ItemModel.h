#pragma once

#include "framework/component/Subject.h"
#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IItemModel.h"
#include "framework/list/ColumnList.h"

namespace KVX {

/// The part of a list model that does not depend on how rows are kept: the columns, the view
/// it is attached to, and its signals. "changed" (Signals::kChanged) tells observers that the
/// rows changed; "selectionChanged" that the attached view's selection did, which is how the
/// model's owner learns of it. ListViewModel adds the rows. User-interface thread.
class ItemModel : public Object, public Subject, public IItemModel
{
    KVX_DECLARE_CLASS(ItemModel, Object)
public:
    static constexpr const char* kSelectionChanged = "selectionChanged";

    ColumnList& columns() { return columns_; }
    const ColumnList& columns() const { return columns_; }
    /// The header title of column `index` as shown; the base shows the stored title.
    virtual String getColumnTitle(int32 index) const;

    /// The attached view, or null.
    IItemView* view() const { return view_; }
    /// Asks the attached view (if any) to draw again.
    void invalidate();
    /// Asks the attached view to select the row at `index`; false without a view or row.
    bool selectRow(int32 index);
    /// Tells the observers that the rows changed.
    void signalItemsChanged();

    // IItemModel
    tresult attachView(IItemView* view) override;
    tresult detachView(IItemView* view) override;
    tresult onSelectionChanged() override;
    int32 countColumns() override { return columns_.count(); }
    tresult getColumn(int32 column, ColumnRecord& record) override;
    KVX_FORWARD_UNKNOWN(Object)

protected:
    ItemModel() = default;

private:
    ColumnList columns_;
    Ref<IItemView> view_;
    std::string columnTitle_; // what getColumn handed out last
};

} // namespace KVX
