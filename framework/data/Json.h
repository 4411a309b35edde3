#pragma once

#include "framework/data/Attributes.h"
#include "framework/stream/IStream.h"

namespace KVX {

/// Reading and writing attribute lists as JSON through the host's text module.
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
};

} // namespace KVX
