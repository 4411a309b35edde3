#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IStream;

/// Message digests. Any thread.
class ICryptoService : public IUnknown
{
public:
    enum Algorithm : uint32
    {
        kMD5 = 1,  ///< 16 bytes
        kSHA1 = 2, ///< 20 bytes
    };

    /// Computes the digest of `length` bytes at `data` and writes its raw bytes to `out`.
    /// kInvalidArgument for an unknown algorithm, a null stream, or null data with a non-zero
    /// length; kUnexpected when the digest cannot be computed or written.
    virtual tresult computeDigest(uint32 algorithm, const void* data, uint64 length, IStream* out) = 0;

    static constexpr UID kIID = UID::fromString("{D4B2F8A6-0E39-4C71-9A5D-6B3E1F7C2A84}");
};

} // namespace KVX
