#include "framework/stream/MemoryStream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace KVX {

KVX_DEFINE_CLASS(MemoryStream, Object, "MemoryStream")

MemoryStream::MemoryStream(size_t growStep) : growStep_(growStep ? growStep : 1) {}

MemoryStream::~MemoryStream()
{
    std::free(data_);
}

tresult MemoryStream::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IStream)
    return Object::queryInterface(iid, object);
}

int64 MemoryStream::read(void* buffer, int64 size)
{
    if (size < 0 || !buffer)
        return -1;
    if (position_ >= static_cast<int64>(size_))
        return 0;
    int64 count = std::min<int64>(size, static_cast<int64>(size_) - position_);
    std::memcpy(buffer, data_ + position_, static_cast<size_t>(count));
    position_ += count;
    return count;
}

int64 MemoryStream::write(const void* buffer, int64 size)
{
    if (size < 0 || (!buffer && size > 0))
        return -1;
    if (size > std::numeric_limits<int64>::max() - position_)
        return -1;
    size_t end = static_cast<size_t>(position_) + static_cast<size_t>(size);
    if (!reserve(end))
        return -1;
    if (static_cast<size_t>(position_) > size_) // a seek past the end leaves a zero-filled gap
        std::memset(data_ + size_, 0, static_cast<size_t>(position_) - size_);
    if (size > 0)
        std::memcpy(data_ + position_, buffer, static_cast<size_t>(size));
    position_ = static_cast<int64>(end);
    size_ = std::max(size_, end);
    return size;
}

int64 MemoryStream::seek(int64 offset, SeekMode mode)
{
    int64 base = mode == kSeekSet ? 0 : mode == kSeekCurrent ? position_ : static_cast<int64>(size_);
    int64 target = base + offset;
    if (target < 0)
        return -1;
    position_ = target;
    return position_;
}

void MemoryStream::clear()
{
    size_ = 0;
    position_ = 0;
}

bool MemoryStream::reserve(size_t needed)
{
    if (needed <= capacity_)
        return true;
    // Whole steps, and at least half again the capacity held: a stream that grows by many small
    // writes moves its bytes a bounded number of times instead of once per step.
    const size_t wanted = std::max(needed, capacity_ + capacity_ / 2);
    const size_t steps = wanted / growStep_ + (wanted % growStep_ != 0);
    if (steps > std::numeric_limits<size_t>::max() / growStep_)
        return false;
    void* grown = std::realloc(data_, steps * growStep_);
    if (!grown)
        return false;
    data_ = static_cast<char*>(grown);
    capacity_ = steps * growStep_;
    return true;
}

} // namespace KVX
