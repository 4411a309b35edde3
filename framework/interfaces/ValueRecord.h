#pragma once

#include "framework/core/Types.h"

#include <type_traits>

namespace KVX {

class IUnknown;

/// One value as it crosses between separately built modules: nothing, a 64-bit integer, a
/// double, UTF-8 text or an object. A plain record, so that no class of one module's framework
/// copy reaches another module.
///
/// Ownership: a record passes nothing. Text and object belong to whoever filled the record, and
/// each operation that fills one says how long they stay valid (typically: as long as the caller
/// holds the object that was asked). A receiver that wants to keep them copies the text and
/// retains the object.
struct ValueRecord
{
    enum Type : int32
    {
        kEmpty = 0,
        kInt = 1,
        kDouble = 2,
        kString = 3,
        kObject = 4,
    };

    int32 type = kEmpty;
    int64 intValue = 0;
    double doubleValue = 0.0;
    /// kString: the text, not necessarily terminated; `textLength` bytes of UTF-8.
    const char* text = nullptr;
    uint64 textLength = 0;
    /// kObject: the object; no reference is passed.
    IUnknown* object = nullptr;
};

static_assert(std::is_trivially_copyable_v<ValueRecord> && std::is_standard_layout_v<ValueRecord>);

} // namespace KVX
