#include "framework/list/ItemModel.h"

#include "framework/component/Signals.h"
#include "framework/component/ThreadContract.h"

namespace KVX {

KVX_DEFINE_CLASS(ItemModel, Object, "ItemModel")

tresult ItemModel::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISubject)
    KVX_QUERY_INTERFACE(iid, object, IItemModel)
    return Object::queryInterface(iid, object);
}

String ItemModel::getColumnTitle(int32 index) const
{
    const ColumnList::Column* column = columns_.at(index);
    return column ? column->title : String();
}

void ItemModel::invalidate()
{
    if (view_)
        view_->invalidate();
}

bool ItemModel::selectRow(int32 index)
{
    return view_ && view_->selectRow(index) == kResultOk;
}

void ItemModel::signalItemsChanged()
{
    signal(Signals::kChanged);
}

tresult ItemModel::attachView(IItemView* view)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!view)
        return kInvalidArgument;
    view_ = view;
    return kResultOk;
}

tresult ItemModel::detachView(IItemView* view)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!view || view != view_.get())
        return kInvalidArgument;
    view_.reset();
    return kResultOk;
}

tresult ItemModel::onSelectionChanged()
{
    signal(kSelectionChanged);
    return kResultOk;
}

tresult ItemModel::getColumn(int32 index, ColumnRecord& record)
{
    const ColumnList::Column* column = columns_.at(index);
    if (!column)
        return kInvalidArgument;
    columnTitle_ = getColumnTitle(index).toUtf8();
    record.width = column->width;
    record.title = columnTitle_.c_str();
    record.identifier = column->identifier.c_str();
    record.flags = column->flags;
    return kResultOk;
}

} // namespace KVX
