#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// What a drop does with the dragged objects; a drag session carries one of these, set by the
/// model that accepts the drop so that the host can show it (the pointer's shape) and act on it.
enum DropResult : int32
{
    kDropNone = 0, ///< the drop is refused
    kDropCopy = 1, ///< the target makes copies; the source keeps its objects
    kDropMove = 2, ///< the objects leave the source
    kDropLink = 4, ///< the target refers to the objects where they are (files stay on the disk)
};

/// One drag in progress, from the moment the user starts dragging until the drop: the dragged
/// objects in the order the source gave them (rows of a list, files as IUrl objects), where the
/// drag started, the picture that follows the pointer, and the result the target chose.
///
/// The host makes the session; models read it in their can-insert and insert operations.
/// User-interface thread. Objects handed out carry no reference and stay valid as long as the
/// session lives.
class IDragSession : public IUnknown
{
public:
    /// The number of dragged objects (0 for an empty drag).
    virtual int32 countItems() = 0;
    /// The dragged object at `index`, or null when out of range.
    virtual IUnknown* getItem(int32 index) = 0;
    /// The view the drag started in, or null for a drag from outside the host (a file manager).
    virtual IUnknown* getSource() = 0;
    /// The picture the source made of what it drags, or null when it made none. Its kind is the
    /// host's; a model only hands it back through setDragImage.
    virtual IUnknown* getSourceImage() = 0;
    /// The picture that follows the pointer from now on (retained; null for none).
    virtual tresult setDragImage(IUnknown* image) = 0;
    virtual IUnknown* getDragImage() = 0;
    /// What the drop will do, a DropResult. kInvalidArgument, nothing changed, for another value.
    virtual tresult setDropResult(int32 result) = 0;
    virtual int32 getDropResult() = 0;

    static constexpr UID kIID = UID::fromString("{E47B1D92-6C3A-4E58-8F21-B9D0A5C7E364}");
};

} // namespace KVX
