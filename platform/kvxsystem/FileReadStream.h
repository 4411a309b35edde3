#pragma once

#include "framework/core/Object.h"
#include "framework/stream/IFileReadStream.h"

namespace KVX::System {

/// IFileReadStream on a POSIX file descriptor, which it owns and closes. Offsets are 64-bit,
/// so files beyond 4 GiB read and seek like any other.
class FileReadStream : public Object, public IFileReadStream
{
    KVX_DECLARE_CLASS(FileReadStream, Object)
public:
    /// Takes over `descriptor`, an open regular file.
    explicit FileReadStream(int descriptor) : descriptor_(descriptor) {}
    ~FileReadStream() override;

    int64 read(void* buffer, int64 size) override;
    int64 write(const void* buffer, int64 size) override;
    int64 seek(int64 offset, SeekMode mode) override;
    int64 tell() override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    const int descriptor_;
};

} // namespace KVX::System
