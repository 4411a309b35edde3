#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IDragSession.h"

#include <vector>

namespace KVX {

/// A drag in progress, made by the view where a drag starts (or by a host for files dragged in
/// from outside): the dragged objects in order, retained until the session goes, the source,
/// the source's picture, and what the target sets on it. User-interface thread.
class DragSession : public Object, public IDragSession
{
    KVX_DECLARE_CLASS(DragSession, Object)
public:
    explicit DragSession(IUnknown* source = nullptr, IUnknown* sourceImage = nullptr)
        : source_(source), sourceImage_(sourceImage)
    {
    }

    /// Appends a dragged object (retained). Null is refused.
    bool addItem(IUnknown* item);

    int32 countItems() override { return static_cast<int32>(items_.size()); }
    IUnknown* getItem(int32 index) override;
    IUnknown* getSource() override { return source_; }
    IUnknown* getSourceImage() override { return sourceImage_; }
    tresult setDragImage(IUnknown* image) override;
    IUnknown* getDragImage() override { return dragImage_; }
    tresult setDropResult(int32 result) override;
    int32 getDropResult() override { return dropResult_; }
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::vector<Ref<IUnknown>> items_;
    Ref<IUnknown> source_;
    Ref<IUnknown> sourceImage_;
    Ref<IUnknown> dragImage_;
    int32 dropResult_ = kDropNone;
};

} // namespace KVX
