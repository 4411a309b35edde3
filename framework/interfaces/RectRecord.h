#pragma once

#include "framework/core/Types.h"

#include <type_traits>

namespace KVX {

/// A rectangle in pixels, as it crosses between modules: `left` and `top` are inside it, `right`
/// and `bottom` just outside, so its width is right - left. A rectangle whose right is not
/// greater than its left (or bottom than top) is empty.
struct RectRecord
{
    int32 left;
    int32 top;
    int32 right;
    int32 bottom;
};

static_assert(std::is_trivially_copyable_v<RectRecord> && std::is_standard_layout_v<RectRecord>);

} // namespace KVX
