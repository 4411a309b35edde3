#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IJsonHandler.h"
#include "framework/stream/IStream.h"
#include "platform/kvxtext/JsonReader.h"

#include <rapidjson/writer.h>

#include <memory>
#include <vector>

namespace KVX::Text {

/// The output stream RapidJSON's writer expects, collecting the text in blocks for an IStream.
/// After the first refused write it drops everything.
class BlockOutput
{
public:
    using Ch = char;

    explicit BlockOutput(IStream& stream) : stream_(stream) {}

    void Put(char c)
    {
        if (used_ == kSize)
            Flush();
        buffer_[used_++] = c;
    }
    void Flush();
    bool failed() const { return failed_; }

private:
    static constexpr size_t kSize = 64 * 1024;

    IStream& stream_;
    std::unique_ptr<char[]> buffer_{new char[kSize]};
    size_t used_ = 0;
    bool failed_ = false;
};

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
    std::vector<bool> open_; // per open container: true for an object
    bool keyGiven_ = false;  // inside an object: a key waits for its value
    bool rootWritten_ = false;
    tresult refused_ = kResultOk;
};

} // namespace KVX::Text
