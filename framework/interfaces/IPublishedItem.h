#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IAttributeList;

/// One file that the host rendered for a publishing target, with its metadata. Made by the
/// host; the target reads it during publish. User-interface thread.
class IPublishedItem : public IUnknown
{
public:
    /// Adds the item's metadata to `metadata` ("Media:Title", "Media:Album", "Media:Artist",
    /// "Media:Year", ...). kInvalidArgument for null.
    virtual tresult getMetadata(IAttributeList* metadata) = 0;
    /// The URL of the rendered file ("file:///..."; UTF-8, terminated), valid as long as the
    /// item lives; never null.
    virtual const char* getFileUrl() = 0;

    static constexpr UID kIID = UID::fromString("{25C7A544-6331-42A4-9659-7FC16094D66A}");
};

/// The items of one publish step, in the order the host rendered them.
class IPublishedItemContainer : public IUnknown
{
public:
    virtual int32 countItems() = 0;
    /// The item at `index` without a reference (valid as long as the container), or null.
    virtual IPublishedItem* getItem(int32 index) = 0;

    static constexpr UID kIID = UID::fromString("{A93E5C17-4B2D-4F68-9D01-E7C4B8F2A635}");
};

} // namespace KVX
