#pragma once

#include "framework/core/Types.h"
#include "platform/kvxtext/JsonReader.h"

namespace KVX {
class IStream;
class Variant;

namespace Text {

/// Writes the framework's value tree as compact JSON text in UTF-8.
///
/// Attributes become objects with their members in order (repeated names are written as they
/// stand), AttributeArray arrays, integers integers, doubles numbers that read back as the same
/// double (an integral double keeps a ".0", so it reads back as a double), strings strings and
/// an empty Variant null. Member names are 8-bit text: bytes that are not UTF-8 are written as
/// U+FFFD, as String does with such input, so the output is always UTF-8.
class JsonWriter
{
public:
    /// Containers may nest this deep, as when reading. A deeper tree, which also catches an
    /// attribute list that contains itself, cannot be written.
    static constexpr int kMaxDepth = JsonReader::kMaxDepth;

    /// Writes `value` to `out`. kInvalidArgument for a value that cannot be written (a NaN or
    /// infinite double, an object of another class, nesting deeper than kMaxDepth); kUnexpected
    /// when the stream refuses a write. After a failure `out` may hold part of the text.
    static tresult write(const Variant& value, IStream& out);
};

} // namespace Text
} // namespace KVX
