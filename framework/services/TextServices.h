#pragma once

/// The accessors that the host's text module (kvxtext) exports.

#include "framework/core/Types.h"
#include "framework/services/IDataTransformer.h"
#include "framework/services/ModuleApi.h"

namespace KVX {
class IJsonHandler;
class IJsonWriter;
class IStream;
} // namespace KVX

extern "C" {

/// Reads one JSON document of exactly `length` bytes (NUL bytes included; no terminator is
/// looked for) and hands its values to `handler` in document order. kResultOk when the document
/// is valid JSON and the handler accepted every value. Invalid JSON (bad syntax, invalid UTF-8,
/// an unpaired surrogate escape, nesting deeper than 512 levels, a number beyond the range of a
/// double, anything but white space after the root) returns kInvalidArgument, and so does a
/// document larger than 128 MiB; the handler may have received values before the error was
/// found, so a receiver keeps what it built only on kResultOk. A result other than kResultOk
/// from the handler stops the parse and is returned. Numbers without fraction or exponent that
/// fit into 64 bits arrive as integers with their exact value; true and false as the integers 1
/// and 0. Any thread.
KVX_MODULE_API KVX::tresult JsonParse(const void* data, KVX::uint64 length, KVX::IJsonHandler* handler);

/// A new writer of compact JSON text (UTF-8) to `out`, or null for a null stream. The caller
/// owns the reference; the writer holds `out` until it is released. Any thread.
KVX_MODULE_API KVX::IJsonWriter* CreateJsonWriter(KVX::IStream* out);

/// Creates a data transformer of the given kind (IDataTransformer::Kind), or returns nullptr for
/// an unknown kind. The caller owns the returned reference.
KVX_MODULE_API KVX::IDataTransformer* CreateDataTransformer(KVX::uint32 kind);
}
