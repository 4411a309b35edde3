#pragma once

#include "framework/core/Types.h"

namespace KVX {
class Variant;

namespace Text {

/// Parses JSON documents into the framework's value tree.
///
/// Values map as follows:
/// - objects become Attributes, with their members in document order. A name that appears more
///   than once keeps one member, at the position where it first appears, holding the value it
///   was given last (what Attributes::set would leave after each member in turn);
/// - arrays become AttributeArray;
/// - numbers without fraction and exponent that fit into 64 bits stay integers with their exact
///   value; every other number becomes a double, correctly rounded. A number beyond the range of
///   a double is an error; one too small for it reads as zero with its sign;
/// - strings become String (a \u0000 escape is kept, so the length is exact);
/// - true and false become the integers 1 and 0, null an empty Variant. The tree has no boolean
///   or null type, and code reading a flag reads it as an integer anyway.
///
/// The input is UTF-8 without a byte-order mark; invalid UTF-8 anywhere is an error. An
/// unpaired surrogate escape (\uD800 without a low half, or a lone \uDC00) is an error: it
/// names no character and has no UTF-8 form.
class JsonReader
{
public:
    /// Objects and arrays may nest this deep, the root counting as one level.
    static constexpr int kMaxDepth = 512;
    /// Longer documents are refused before any byte is read. The limit keeps every offset and
    /// exponent the tokenizer counts far from overflowing.
    static constexpr uint64 kMaxLength = uint64(128) << 20;

    /// Parses exactly `length` bytes at `data` (NUL bytes included) as one JSON document, which
    /// may be followed by white space only. On success stores the root value in `result` and
    /// returns kResultOk; otherwise returns kInvalidArgument and leaves `result` as it was.
    static tresult parse(const void* data, uint64 length, Variant& result);
};

} // namespace Text
} // namespace KVX
