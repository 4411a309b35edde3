#include "platform/kvxsystem/FileReadStream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace KVX::System {

static_assert(sizeof(off_t) == 8, "file offsets must be 64-bit");

KVX_DEFINE_CLASS(FileReadStream, Object, "FileReadStream")

tresult FileReadStream::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IFileReadStream)
    KVX_QUERY_INTERFACE(iid, object, IStream)
    return Object::queryInterface(iid, object);
}

FileReadStream::~FileReadStream()
{
    ::close(descriptor_);
}

int64 FileReadStream::read(void* buffer, int64 size)
{
    if (size < 0 || (!buffer && size > 0))
        return -1;
    // A regular file gives what was asked unless the end comes first, but one system call
    // reads at most about 2 GiB, and a signal may interrupt it.
    constexpr int64 kLargestRead = int64(1) << 30;
    auto* bytes = static_cast<char*>(buffer);
    int64 done = 0;
    while (done < size)
    {
        const ssize_t got =
            ::read(descriptor_, bytes + done, static_cast<size_t>(std::min(size - done, kLargestRead)));
        if (got < 0)
        {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

int64 FileReadStream::write(const void*, int64)
{
    return -1;
}

int64 FileReadStream::seek(int64 offset, SeekMode mode)
{
    int whence;
    switch (mode)
    {
    case kSeekSet:
        whence = SEEK_SET;
        break;
    case kSeekCurrent:
        whence = SEEK_CUR;
        break;
    case kSeekEnd:
        whence = SEEK_END;
        break;
    default:
        return -1;
    }
    const off_t position = ::lseek(descriptor_, static_cast<off_t>(offset), whence);
    return position < 0 ? -1 : static_cast<int64>(position);
}

int64 FileReadStream::tell()
{
    const off_t position = ::lseek(descriptor_, 0, SEEK_CUR);
    return position < 0 ? -1 : static_cast<int64>(position);
}

} // namespace KVX::System
