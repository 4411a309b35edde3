#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IStream;

/// Turns bytes into another form (hexadecimal text, for example) and writes the result to a
/// stream. An object is used by one thread at a time.
class IDataTransformer : public IUnknown
{
public:
    enum Kind : uint32
    {
        /// Two lower-case hexadecimal digits per byte, in byte order.
        kHexEncode = 1
    };

    /// Writes the transformed form of `length` bytes at `data` to `out`. kInvalidArgument for a
    /// null stream or null data with a non-zero length; kUnexpected when the stream refuses the
    /// write.
    virtual tresult transform(const void* data, uint64 length, IStream* out) = 0;

    static constexpr UID kIID = UID::fromString("{9E3B6C1D-52A4-4E07-B8F1-0D6A2C5E7B93}");
};

} // namespace KVX
