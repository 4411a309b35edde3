#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/stream/IStream.h"

#include <string_view>
#include <vector>

namespace KVX {

/// A growable, seekable stream in memory. Its capacity grows in whole steps (1024 bytes unless
/// told otherwise), so building a small body costs one allocation, and by at least half of what
/// it holds, so a large one is copied only a few times as it grows.
class MemoryStream : public Object, public IStream
{
    KVX_DECLARE_CLASS(MemoryStream, Object)
public:
    explicit MemoryStream(size_t growStep = 1024);

    int64 read(void* buffer, int64 size) override;
    int64 write(const void* buffer, int64 size) override;
    int64 seek(int64 offset, SeekMode mode) override;
    int64 tell() override { return position_; }
    KVX_FORWARD_UNKNOWN(Object)

    int64 write(std::string_view bytes) { return write(bytes.data(), static_cast<int64>(bytes.size())); }

    const char* data() const { return data_.data(); }
    size_t size() const { return size_; }
    size_t capacity() const { return data_.size(); }
    std::string_view view() const { return {data_.data(), size_}; }
    /// Empties the stream and rewinds it; the capacity stays.
    void clear();

private:
    void reserve(size_t needed);

    std::vector<char> data_;
    size_t size_ = 0;
    int64 position_ = 0;
    size_t growStep_;
};

} // namespace KVX
