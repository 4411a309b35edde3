#include "framework/stream/StreamChain.h"

#include <algorithm>

namespace KVX {

KVX_DEFINE_CLASS(StreamChain, Object, "StreamChain")

tresult StreamChain::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IStream)
    return Object::queryInterface(iid, object);
}

bool StreamChain::append(IStream* stream, int64 length)
{
    if (!stream || length < 0)
        return false;
    int64 start = stream->tell();
    if (start < 0)
        return false;
    pieces_.push_back({Ref<IStream>(stream), start, total_, length});
    total_ += length;
    return true;
}

int64 StreamChain::read(void* buffer, int64 size)
{
    if (size < 0 || !buffer)
        return -1;
    auto* out = static_cast<char*>(buffer);
    int64 done = 0;
    while (done < size && position_ < total_)
    {
        while (current_ < pieces_.size() && position_ >= pieces_[current_].offset + pieces_[current_].length)
            ++current_, positioned_ = false;
        Piece& piece = pieces_[current_];
        int64 within = position_ - piece.offset;
        if (!positioned_)
        {
            if (piece.stream->seek(piece.start + within, kSeekSet) != piece.start + within)
                return -1;
            positioned_ = true;
        }
        int64 wanted = std::min(size - done, piece.length - within);
        int64 got = piece.stream->read(out + done, wanted);
        if (got <= 0)
            return -1; // the piece is shorter than promised, or broken
        done += got;
        position_ += got;
    }
    return done;
}

int64 StreamChain::write(const void*, int64)
{
    return -1;
}

int64 StreamChain::seek(int64 offset, SeekMode mode)
{
    int64 base = mode == kSeekSet ? 0 : mode == kSeekCurrent ? position_ : total_;
    int64 target = base + offset;
    if (target < 0 || target > total_)
        return -1;
    position_ = target;
    current_ = 0;
    positioned_ = false;
    return position_;
}

} // namespace KVX
