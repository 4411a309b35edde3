#include "platform/kvxtext/JsonWriter.h"

#include "framework/text/String.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace KVX::Text {

KVX_DEFINE_CLASS(JsonWriter, Object, "JsonWriter")

namespace {

bool isAscii(std::string_view text)
{
    constexpr uint64_t kHighBits = 0x8080808080808080u;
    size_t i = 0;
    for (; i + 8 <= text.size(); i += 8)
    {
        uint64_t word;
        std::memcpy(&word, text.data() + i, sizeof word);
        if (word & kHighBits)
            return false;
    }
    for (; i < text.size(); ++i)
        if (static_cast<unsigned char>(text[i]) >= 0x80)
            return false;
    return true;
}

constexpr uint64 kMaxStringLength = std::numeric_limits<rapidjson::SizeType>::max();

} // namespace

void BlockOutput::Flush()
{
    if (used_ > 0 && !failed_)
        failed_ = stream_.write(buffer_.get(), static_cast<int64>(used_)) != static_cast<int64>(used_);
    used_ = 0;
}

JsonWriter::JsonWriter(IStream& out) : stream_(&out), output_(out), writer_(output_) {}

tresult JsonWriter::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IJsonWriter)
    KVX_QUERY_INTERFACE(iid, object, IJsonHandler)
    return Object::queryInterface(iid, object);
}

tresult JsonWriter::refuse(tresult result)
{
    if (refused_ == kResultOk)
        refused_ = result;
    return refused_;
}

tresult JsonWriter::outcome() const
{
    if (refused_ != kResultOk)
        return refused_;
    return output_.failed() ? kUnexpected : kResultOk;
}

bool JsonWriter::placeValue()
{
    if (refused_ != kResultOk)
        return false;
    if (open_.empty())
    {
        if (rootWritten_)
            return false;
        rootWritten_ = true;
        return true;
    }
    if (open_.back())
    {
        if (!keyGiven_)
            return false;
        keyGiven_ = false;
    }
    return true;
}

tresult JsonWriter::onNull()
{
    if (!placeValue())
        return refuse(kInvalidArgument);
    writer_.Null();
    return outcome();
}

tresult JsonWriter::onInteger(int64 value)
{
    if (!placeValue())
        return refuse(kInvalidArgument);
    writer_.Int64(value);
    return outcome();
}

tresult JsonWriter::onDouble(double value)
{
    // Checked before the writer adds a separator for a value it would then refuse.
    if (!std::isfinite(value) || !placeValue())
        return refuse(kInvalidArgument);
    writer_.Double(value);
    return outcome();
}

tresult JsonWriter::onString(const char* text, uint64 length)
{
    if ((!text && length > 0) || length > kMaxStringLength || !placeValue())
        return refuse(kInvalidArgument);
    writer_.String(text ? text : "", static_cast<rapidjson::SizeType>(length));
    return outcome();
}

tresult JsonWriter::onStartObject()
{
    if (open_.size() >= kMaxDepth || !placeValue())
        return refuse(kInvalidArgument);
    open_.push_back(true);
    writer_.StartObject();
    return outcome();
}

tresult JsonWriter::onKey(const char* text, uint64 length)
{
    if (refused_ != kResultOk || open_.empty() || !open_.back() || keyGiven_ || (!text && length > 0))
        return refuse(kInvalidArgument);
    std::string_view name(text ? text : "", static_cast<size_t>(length));
    String repaired;
    if (!isAscii(name))
    {
        repaired = String::fromUtf8(name);
        name = repaired.toUtf8();
    }
    if (name.size() > kMaxStringLength)
        return refuse(kInvalidArgument);
    keyGiven_ = true;
    writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    return outcome();
}

tresult JsonWriter::onEndObject()
{
    if (refused_ != kResultOk || open_.empty() || !open_.back() || keyGiven_)
        return refuse(kInvalidArgument);
    open_.pop_back();
    writer_.EndObject();
    return outcome();
}

tresult JsonWriter::onStartArray()
{
    if (open_.size() >= kMaxDepth || !placeValue())
        return refuse(kInvalidArgument);
    open_.push_back(false);
    writer_.StartArray();
    return outcome();
}

tresult JsonWriter::onEndArray()
{
    if (refused_ != kResultOk || open_.empty() || open_.back())
        return refuse(kInvalidArgument);
    open_.pop_back();
    writer_.EndArray();
    return outcome();
}

tresult JsonWriter::finish()
{
    output_.Flush();
    if (refused_ == kResultOk && (!rootWritten_ || !open_.empty()))
        refuse(kInvalidArgument);
    return outcome();
}

} // namespace KVX::Text
