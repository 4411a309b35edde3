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

/// The host's string dictionary: translations of the plug-ins' user-visible texts, which the host
/// fills from its language file and every module looks up when it shows a text. A text is found
/// by its scope (the plug-in's is "Sorvel") and its key (the English text). Any thread.
///
/// Stores `translation` (UTF-8) for `key` in `scope`; a null or empty translation removes the
/// entry. kInvalidArgument for a null or empty scope or key.
KVX_MODULE_API KVX::tresult SetLocalizedText(const char* scope, const char* key, const char* translation);
/// Copies the translation of `key` in `scope`, NUL-terminated and cut to fit, into `buffer` and
/// returns its whole length; 0 when the dictionary has none (the caller shows the key). A result
/// of `size` or more means the buffer was too small for the whole text.
KVX_MODULE_API KVX::uint32 GetLocalizedText(const char* scope, const char* key, char* buffer, KVX::uint32 size);
/// Removes every translation of `scope`; of every scope for a null scope.
KVX_MODULE_API void ClearLocalizedTexts(const char* scope);
}
