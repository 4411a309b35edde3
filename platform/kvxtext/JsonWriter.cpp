#include "platform/kvxtext/JsonWriter.h"

#include "framework/data/AttributeArray.h"
#include "framework/data/Attributes.h"
#include "framework/stream/IStream.h"

#include <rapidjson/writer.h>

#include <cmath>
#include <limits>
#include <string_view>

namespace KVX::Text {
namespace {

/// The output stream RapidJSON's writer expects, collecting the text in blocks for an IStream.
/// After the first refused write it drops everything.
class BlockOutput
{
public:
    using Ch = char;

    explicit BlockOutput(IStream& stream) : stream_(stream) {}

    void Put(char c)
    {
        if (used_ == sizeof buffer_)
            Flush();
        buffer_[used_++] = c;
    }

    void Flush()
    {
        if (used_ > 0 && !failed_)
            failed_ = stream_.write(buffer_, static_cast<int64>(used_)) != static_cast<int64>(used_);
        used_ = 0;
    }

    bool failed() const { return failed_; }

private:
    IStream& stream_;
    char buffer_[4096];
    size_t used_ = 0;
    bool failed_ = false;
};

bool isAscii(std::string_view text)
{
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    return true;
}

constexpr size_t kMaxStringLength = std::numeric_limits<rapidjson::SizeType>::max();

class TreeWriter
{
public:
    explicit TreeWriter(IStream& stream) : output_(stream), writer_(output_) {}

    tresult write(const Variant& value)
    {
        tresult result = writeValue(value, 0);
        output_.Flush();
        if (result == kResultOk && output_.failed())
            result = kUnexpected;
        return result;
    }

private:
    tresult writeValue(const Variant& value, int depth)
    {
        switch (value.type())
        {
        case Variant::kEmpty:
            writer_.Null();
            break;
        case Variant::kInt:
            writer_.Int64(value.asInt());
            break;
        case Variant::kDouble:
            // Checked before the writer adds a separator for a value it would then refuse.
            if (!std::isfinite(value.asDouble()))
                return kInvalidArgument;
            writer_.Double(value.asDouble());
            break;
        case Variant::kString:
        {
            const std::string& text = value.asString().toUtf8();
            if (text.size() > kMaxStringLength)
                return kInvalidArgument;
            writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
            break;
        }
        case Variant::kObject:
            if (const Attributes* object = value.asObject<Attributes>())
                return writeObject(*object, depth + 1);
            if (const AttributeArray* array = value.asObject<AttributeArray>())
                return writeArray(*array, depth + 1);
            return kInvalidArgument;
        }
        return output_.failed() ? kUnexpected : kResultOk;
    }

    tresult writeObject(const Attributes& object, int depth)
    {
        if (depth > JsonWriter::kMaxDepth)
            return kInvalidArgument;
        writer_.StartObject();
        for (const Attributes::Member& member : object)
        {
            std::string_view name = member.name.view();
            String repaired;
            if (!isAscii(name))
            {
                repaired = String::fromUtf8(name);
                name = repaired.toUtf8();
            }
            if (name.size() > kMaxStringLength)
                return kInvalidArgument;
            writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
            if (tresult result = writeValue(member.value, depth); result != kResultOk)
                return result;
        }
        writer_.EndObject();
        return output_.failed() ? kUnexpected : kResultOk;
    }

    tresult writeArray(const AttributeArray& array, int depth)
    {
        if (depth > JsonWriter::kMaxDepth)
            return kInvalidArgument;
        writer_.StartArray();
        for (const Variant& element : array)
            if (tresult result = writeValue(element, depth); result != kResultOk)
                return result;
        writer_.EndArray();
        return output_.failed() ? kUnexpected : kResultOk;
    }

    BlockOutput output_;
    rapidjson::Writer<BlockOutput> writer_;
};

} // namespace

tresult JsonWriter::write(const Variant& value, IStream& out)
{
    return TreeWriter(out).write(value);
}

} // namespace KVX::Text
