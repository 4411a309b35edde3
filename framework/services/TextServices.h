#pragma once

/// The accessors that the host's text module (kvxtext) exports.

#include "framework/core/Types.h"
#include "framework/services/IDataTransformer.h"
#include "framework/services/ModuleApi.h"

namespace KVX {
class IStream;
class Variant;
} // namespace KVX

extern "C" {

/// Parses one JSON document of exactly `length` bytes (NUL bytes included; no terminator is
/// looked for). On success stores the root value in `*result` (objects as Attributes, arrays as
/// AttributeArray, integral numbers as 64-bit integers when they fit, other numbers as doubles)
/// and returns kResultOk. Invalid JSON (bad syntax, invalid UTF-8, nesting deeper than the limit)
/// returns kInvalidArgument and leaves `*result` untouched, and so does a document larger than
/// 128 MiB. true and false read as the integers 1 and 0, null as an empty Variant; of members
/// with the same name, one is kept, at the first one's place, with the last one's value. Any thread.
KVX_MODULE_API KVX::tresult JsonParse(const void* data, KVX::uint64 length, KVX::Variant* result);

/// Writes `value` as compact JSON text (UTF-8) to `out`. Attributes become objects with their
/// members in order, AttributeArray arrays. kInvalidArgument when the value cannot be written
/// (a non-finite double, an object of another class, nesting deeper than the reader's limit),
/// kUnexpected when the stream refuses a write; `out` may then hold part of the text.
KVX_MODULE_API KVX::tresult JsonStringify(const KVX::Variant* value, KVX::IStream* out);

/// Creates a data transformer of the given kind (IDataTransformer::Kind), or returns nullptr for
/// an unknown kind. The caller owns the returned reference.
KVX_MODULE_API KVX::IDataTransformer* CreateDataTransformer(KVX::uint32 kind);
}
