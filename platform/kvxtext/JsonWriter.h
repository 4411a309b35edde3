#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IJsonHandler.h"
#include "framework/stream/IStream.h"
#include "platform/kvxtext/JsonReader.h"

#include <rapidjson/writer.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace KVX::Text {

/// The output stream RapidJSON's writer expects, collecting the text in blocks for an IStream.
/// After the first refused write it drops everything.
///
/// The writer says before each value how many bytes the value can take at most (a string six
/// times its length, for escapes); when that fits in a block, the bytes go in without a check
/// each. A longer string is written with a check per byte instead, so that no block ever has to
/// be larger than kBlockSize.
class BlockOutput
{
public:
    using Ch = char;

    explicit BlockOutput(IStream& stream) : stream_(stream) {}

    void Put(char c)
    {
        if (used_ == kBlockSize)
            Flush();
        buffer_[used_++] = c;
    }
    void reserve(size_t count)
    {
        if (kBlockSize - used_ < count)
            Flush();
        checked_ = count > kBlockSize;
    }
    void putReserved(char c)
    {
        if (checked_)
            Put(c);
        else
            buffer_[used_++] = c;
    }
    void putReserved(const char* bytes, size_t count)
    {
        while (checked_ && count > kBlockSize - used_)
        {
            const size_t part = kBlockSize - used_;
            std::memcpy(buffer_.get() + used_, bytes, part);
            used_ = kBlockSize;
            Flush();
            bytes += part;
            count -= part;
        }
        std::memcpy(buffer_.get() + used_, bytes, count);
        used_ += count;
    }
    void Flush();
    bool failed() const { return failed_; }

private:
    static constexpr size_t kBlockSize = 64 * 1024;

    IStream& stream_;
    std::unique_ptr<char[]> buffer_{new char[kBlockSize]};
    size_t used_ = 0;
    bool checked_ = false;
    bool failed_ = false;
};

// Found by argument-dependent lookup from inside the writer, in place of RapidJSON's generic
// forms, which check the room for every byte.
inline void PutReserve(BlockOutput& output, size_t count)
{
    output.reserve(count);
}
inline void PutUnsafe(BlockOutput& output, char c)
{
    output.putReserved(c);
}

} // namespace KVX::Text

namespace rapidjson {

/// The writer copies the bytes of a string that need no escape as one run (RapidJSON leaves this
/// step open for each output stream): eight bytes are checked at a time, and bytes from 0x80 up
/// are copied as they are, as the writer's own loop would.
template <>
inline bool Writer<KVX::Text::BlockOutput>::ScanWriteUnescapedString(StringStream& is, size_t length)
{
    constexpr uint64_t kOnes = 0x0101010101010101u;
    constexpr uint64_t kHighBits = 0x8080808080808080u;
    const char* const start = is.src_;
    const char* const end = is.head_ + length;
    const char* p = start;
    while (end - p >= 8)
    {
        uint64_t word;
        std::memcpy(&word, p, sizeof word);
        // Each test sets the top bit of a byte below 0x20, a quote or a backslash; its borrow
        // can mark bytes after such a byte, never one before the first.
        const uint64_t quotes = word ^ (kOnes * '"');
        const uint64_t backslashes = word ^ (kOnes * '\\');
        const uint64_t special = (((word - kOnes * 0x20) & ~word) | ((quotes - kOnes) & ~quotes) |
                                  ((backslashes - kOnes) & ~backslashes)) &
                                 kHighBits;
        if (special)
        {
            p += std::countr_zero(special) / 8;
            break;
        }
        p += 8;
    }
    if (end - p < 8)
        while (p < end && static_cast<unsigned char>(*p) >= 0x20 && *p != '"' && *p != '\\')
            ++p;
    os_->putReserved(start, static_cast<size_t>(p - start));
    is.src_ = p;
    return RAPIDJSON_LIKELY(is.Tell() < length);
}

} // namespace rapidjson

namespace KVX::Text {

/// Writes the values it is given as compact JSON text in UTF-8 (see IJsonWriter).
///
/// Integers are written as integers, doubles as numbers that read back as the same double (an
/// integral double keeps a ".0", so it reads back as a double). Member names are 8-bit text:
/// bytes that are not UTF-8 are written as U+FFFD, so the output is always UTF-8. The calls are
/// checked to form one document; a call out of place, like a value that JSON cannot hold, makes
/// the writer refuse everything after it.
class JsonWriter : public Object, public IJsonWriter
{
    KVX_DECLARE_CLASS(JsonWriter, Object)
public:
    /// Containers may nest this deep, as when reading.
    static constexpr int kMaxDepth = JsonReader::kMaxDepth;

    explicit JsonWriter(IStream& out);

    tresult onNull() override;
    tresult onInteger(int64 value) override;
    tresult onDouble(double value) override;
    tresult onString(const char* text, uint64 length) override;
    tresult onStartObject() override;
    tresult onKey(const char* text, uint64 length) override;
    tresult onEndObject() override;
    tresult onStartArray() override;
    tresult onEndArray() override;
    tresult finish() override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    /// Whether a value may stand here; records that one does.
    bool placeValue();
    tresult refuse(tresult result);
    tresult outcome() const;

    Ref<IStream> stream_;
    BlockOutput output_;
    rapidjson::Writer<BlockOutput> writer_;
    std::vector<char> open_; // per open container: true for an object
    bool keyGiven_ = false;  // inside an object: a key waits for its value
    bool rootWritten_ = false;
    tresult refused_ = kResultOk;
};

} // namespace KVX::Text
