#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// A byte stream. A stream object is used by one thread at a time; whoever holds it decides
/// which (a request body is read on the transfer's thread while it is sent).
class IStream : public IUnknown
{
public:
    enum SeekMode
    {
        kSeekSet,
        kSeekCurrent,
        kSeekEnd
    };

    /// Reads up to `size` bytes. Returns the number read, 0 at the end, -1 on failure.
    virtual int64 read(void* buffer, int64 size) = 0;
    /// Writes `size` bytes. Returns the number written, -1 when the stream cannot be written.
    virtual int64 write(const void* buffer, int64 size) = 0;
    /// Moves the position. Returns the new position, or -1 (position unchanged) when the stream
    /// cannot seek there.
    virtual int64 seek(int64 offset, SeekMode mode) = 0;
    /// The current position.
    virtual int64 tell() = 0;

    static constexpr UID kIID = UID::fromString("{0C1E5A3B-7F26-4D8A-A5B1-2E9D3C4F6071}");
};

} // namespace KVX
