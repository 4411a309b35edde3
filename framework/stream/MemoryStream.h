#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/stream/IStream.h"

#include <string_view>

namespace KVX {

/// A growable, seekable stream in memory. Its capacity grows in whole steps (1024 bytes unless
/// told otherwise), so building a small body costs one allocation, and by at least half of what
/// it holds, so a large one is moved only a few times as it grows. Room that was not written is
/// not cleared first; a gap left by a seek past the end reads as zeros.
class MemoryStream : public Object, public IStream
{
    KVX_DECLARE_CLASS(MemoryStream, Object)
public:
    explicit MemoryStream(size_t growStep = 1024);
    ~MemoryStream() override;
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;

    int64 read(void* buffer, int64 size) override;
    int64 write(const void* buffer, int64 size) override;
    int64 seek(int64 offset, SeekMode mode) override;
    int64 tell() override { return position_; }
    KVX_FORWARD_UNKNOWN(Object)

    int64 write(std::string_view bytes) { return write(bytes.data(), static_cast<int64>(bytes.size())); }

    const char* data() const { return data_; }
    size_t size() const { return size_; }
    size_t capacity() const { return capacity_; }
    std::string_view view() const { return {data_, size_}; }
    /// Empties the stream and rewinds it; the capacity stays.
    void clear();

private:
    /// False when the room cannot be had.
    bool reserve(size_t needed);

    // Held with malloc, so that growing a large stream can move its pages instead of copying
    // its bytes, and new room is not filled before it is written.
    char* data_ = nullptr;
    size_t capacity_ = 0;
    size_t size_ = 0;
    int64 position_ = 0;
    size_t growStep_;
};

} // namespace KVX
