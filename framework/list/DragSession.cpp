#include "framework/list/DragSession.h"

namespace KVX {

KVX_DEFINE_CLASS(DragSession, Object, "DragSession")

tresult DragSession::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IDragSession)
    return Object::queryInterface(iid, object);
}

bool DragSession::addItem(IUnknown* item)
{
    if (!item)
        return false;
    items_.emplace_back(item);
    return true;
}

IUnknown* DragSession::getItem(int32 index)
{
    return index >= 0 && static_cast<size_t>(index) < items_.size() ? items_[static_cast<size_t>(index)].get()
                                                                    : nullptr;
}

tresult DragSession::setDragImage(IUnknown* image)
{
    dragImage_ = image;
    return kResultOk;
}

tresult DragSession::setDropResult(int32 result)
{
    switch (result)
    {
    case kDropNone:
    case kDropCopy:
    case kDropMove:
    case kDropLink:
        dropResult_ = result;
        return kResultOk;
    default:
        return kInvalidArgument;
    }
}

} // namespace KVX
