#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// Receives the values of a JSON document as the text module reads it, in document order: the
/// reader validates (syntax, UTF-8, nesting, number range) and the receiver builds what it
/// wants. The same operations, called by a module, make an IJsonWriter produce JSON text.
///
/// Texts are UTF-8 and already validated; the pointers are valid during the call only. Each
/// operation returns kResultOk to go on; any other result stops the parse (or the writing) and
/// becomes its result. Called on the thread that called JsonParse.
class IJsonHandler : public IUnknown
{
public:
    virtual tresult onNull() = 0;
    /// Integral numbers that fit into 64 bits, and true and false as 1 and 0.
    virtual tresult onInteger(int64 value) = 0;
    /// Every other number, correctly rounded.
    virtual tresult onDouble(double value) = 0;
    virtual tresult onString(const char* text, uint64 length) = 0;
    virtual tresult onStartObject() = 0;
    /// The name of the next member of the innermost open object.
    virtual tresult onKey(const char* text, uint64 length) = 0;
    virtual tresult onEndObject() = 0;
    virtual tresult onStartArray() = 0;
    virtual tresult onEndArray() = 0;

    static constexpr UID kIID = UID::fromString("{3F6A2D81-B5C4-4E97-8A13-D2E7C0B9F546}");
};

/// Writes the values it is given as compact JSON text to the stream it was made for (see
/// CreateJsonWriter). Calls must form one well-nested document, with a key before every member
/// value. One thread at a time.
class IJsonWriter : public IJsonHandler
{
public:
    /// Ends the document and writes what is still buffered. kResultOk when the whole document
    /// reached the stream; kInvalidArgument when the calls did not form one complete document or
    /// a value could not be written (a NaN or infinite double, nesting deeper than the reader's
    /// limit); kUnexpected when the stream refused a write.
    virtual tresult finish() = 0;

    static constexpr UID kIID = UID::fromString("{8B1E5F3C-74A9-4D26-B0E8-5C3D9A7F2E61}");
};

} // namespace KVX
