#pragma once

#include "framework/core/Types.h"

namespace KVX {
class IJsonHandler;

namespace Text {

/// Reads JSON documents and hands their values to a receiver, which builds what it wants (the
/// framework builds its attribute tree).
///
/// Values arrive as follows:
/// - objects as start, then key and value per member in document order, then end;
/// - numbers without fraction and exponent that fit into 64 bits as integers with their exact
///   value; every other number as a double, correctly rounded. A number beyond the range of a
///   double is an error; one too small for it reads as zero with its sign;
/// - strings with their exact length (a \u0000 escape is kept);
/// - true and false as the integers 1 and 0. Receivers have no boolean type, and code reading a
///   flag reads it as an integer anyway.
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
    /// may be followed by white space only, handing every value to `handler`. kResultOk when the
    /// document is valid and the handler took every value; kInvalidArgument for invalid JSON; a
    /// handler's own refusal is returned as it gave it.
    static tresult parse(const void* data, uint64 length, IJsonHandler& handler);
};

} // namespace Text
} // namespace KVX
