#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/stream/IStream.h"

#include <vector>

namespace KVX {

/// Ordered pieces, each a stream and a length, that read as one stream: a request body made of
/// small text pieces around a file, sent without ever being assembled in memory. The total
/// length is known before reading, so it can go out as the body's length.
///
/// Each piece is read from the position its stream had when it was appended. The chain can seek
/// (a body is rewound when a transfer must start again) as long as its pieces can. A piece that
/// ends before its stated length makes the read fail rather than send a short body.
class StreamChain : public Object, public IStream
{
    KVX_DECLARE_CLASS(StreamChain, Object)
public:
    /// Holds a reference to `stream`. False (nothing appended) for a null stream, a negative
    /// length, or a stream whose position cannot be read.
    bool append(IStream* stream, int64 length);

    size_t pieceCount() const { return pieces_.size(); }
    int64 totalLength() const { return total_; }

    int64 read(void* buffer, int64 size) override;
    int64 write(const void* buffer, int64 size) override;
    int64 seek(int64 offset, SeekMode mode) override;
    int64 tell() override { return position_; }
    KVX_FORWARD_UNKNOWN(Object)

private:
    struct Piece
    {
        Ref<IStream> stream;
        int64 start;  // position in the piece's own stream where its bytes begin
        int64 offset; // position of the piece in the chain
        int64 length;
    };

    std::vector<Piece> pieces_;
    int64 total_ = 0;
    int64 position_ = 0;
    size_t current_ = 0;    // piece that holds position_
    bool positioned_ = false; // whether the current piece's stream is at the matching position
};

} // namespace KVX
