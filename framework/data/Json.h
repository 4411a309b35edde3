#pragma once

#include "framework/data/Attributes.h"
#include "framework/stream/IStream.h"

namespace KVX {

/// Reading and writing attribute lists and values as JSON through the host's text module. The
/// module validates and tokenizes; the tree is built here, in this module's own classes, from
/// the values the module hands over, and written by handing the module the values one by one.
class Json
{
public:
    /// Reads `stream` from its current position to its end and parses it as a JSON object into
    /// `result`, which is replaced. False (and `result` left empty) for anything else: invalid
    /// JSON, a root that is not an object, an unreadable stream.
    static bool load(Attributes& result, IStream& stream);
    /// The same for bytes in memory.
    static bool load(Attributes& result, std::string_view bytes);
    /// Writes `attributes` as one JSON object to `stream`.
    static bool save(IStream& stream, const Attributes& attributes);
    /// The JSON text of `attributes` (empty on failure).
    static std::string toText(const Attributes& attributes);

    /// Parses any JSON value into `result`: objects become Attributes with their members in
    /// document order (of members with the same name one is kept, at the first one's place, with
    /// the last one's value), arrays AttributeArray, integral numbers that fit 64-bit integers,
    /// other numbers doubles, true and false the integers 1 and 0, null an empty Variant. The
    /// text module's result (kInvalidArgument for invalid JSON, see JsonParse); `result` is
    /// replaced only on kResultOk.
    static tresult parse(const void* data, uint64 length, Variant& result);
    /// Writes `value` as compact JSON: Attributes as objects, AttributeArray as arrays, an empty
    /// Variant as null. kInvalidArgument for what JSON cannot hold (a non-finite double, an object
    /// of another class, nesting deeper than 512 levels, which also catches a list that contains
    /// itself); kUnexpected when the stream refuses a write, and `out` may then hold part of it.
    static tresult write(const Variant& value, IStream& out);
};

} // namespace KVX
