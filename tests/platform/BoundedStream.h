#pragma once

#include "framework/core/Object.h"
#include "framework/stream/IStream.h"

#include <string>

namespace KVX::Testing {

/// A stream that takes at most `capacity` bytes in all and refuses any write beyond them, for
/// checking how writers react to a full stream.
class BoundedStream : public Object, public IStream
{
public:
    explicit BoundedStream(size_t capacity) : capacity_(capacity) {}

    int64 read(void*, int64) override { return -1; }
    int64 write(const void* buffer, int64 size) override
    {
        if (size < 0 || text.size() + static_cast<size_t>(size) > capacity_)
            return -1;
        text.append(static_cast<const char*>(buffer), static_cast<size_t>(size));
        return size;
    }
    int64 seek(int64, SeekMode) override { return -1; }
    int64 tell() override { return static_cast<int64>(text.size()); }

    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IStream)
        return Object::queryInterface(iid, object);
    }

    std::string text;

private:
    size_t capacity_;
};

} // namespace KVX::Testing
