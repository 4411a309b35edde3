#include "platform/kvxtext/JsonReader.h"

#include "framework/data/AttributeArray.h"
#include "framework/data/Attributes.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KVX::Text {
namespace {

bool isJsonSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

/// The decimal exponent of the first non-zero digit of a JSON number: 0 for "1.5", 2 for "123"
/// and for "1e2", -3 for "0.00123". Only its sign is used, so a huge exponent saturates.
int64 leadingExponent(std::string_view text)
{
    size_t pos = text.starts_with('-') ? 1 : 0;
    const size_t integerStart = pos;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9')
        ++pos;
    const auto integerDigits = static_cast<int64>(pos - integerStart);
    if (pos < text.size() && text[pos] == '.')
        ++pos;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9')
        ++pos;

    int64 leading = 0;
    int64 place = integerDigits - 1; // the exponent of the digit at hand
    for (size_t i = integerStart; i < pos; ++i)
    {
        if (text[i] == '.')
            continue;
        if (text[i] != '0')
        {
            leading = place;
            break;
        }
        --place;
    }

    int64 exponent = 0;
    bool negative = false;
    if (pos < text.size() && (text[pos] == 'e' || text[pos] == 'E'))
    {
        ++pos;
        if (pos < text.size() && (text[pos] == '+' || text[pos] == '-'))
            negative = text[pos++] == '-';
        constexpr int64 kSaturated = int64(1) << 40;
        for (; pos < text.size(); ++pos)
            exponent = std::min<int64>(exponent * 10 + (text[pos] - '0'), kSaturated);
    }
    return leading + (negative ? -exponent : exponent);
}

/// Converts one number, as the tokenizer accepted it, into an integer when it is integral and
/// fits, or else into the nearest double. False when it is beyond the range of a double.
bool convertNumber(std::string_view text, Variant& value)
{
    const char* begin = text.data();
    const char* end = begin + text.size();
    if (text.find_first_of(".eE") == std::string_view::npos)
    {
        int64 integer = 0;
        auto [stop, error] = std::from_chars(begin, end, integer);
        if (error == std::errc() && stop == end)
        {
            value = Variant(integer);
            return true;
        }
        if (error != std::errc::result_out_of_range)
            return false;
    }
    double number = 0.0;
    auto [stop, error] = std::from_chars(begin, end, number);
    if (stop != end)
        return false;
    if (error == std::errc::result_out_of_range)
    {
        // from_chars reports underflow and overflow alike; only underflow has a value.
        if (leadingExponent(text) >= 0)
            return false;
        number = text.starts_with('-') ? -0.0 : 0.0;
    }
    else if (error != std::errc())
        return false;
    value = Variant(number);
    return true;
}

/// A surrogate code point has the three-byte form ED A0..BF xx, which is not UTF-8. RapidJSON
/// refuses such raw bytes and unpaired high surrogate escapes, but it decodes a lone low
/// surrogate escape (\uDC00 to \uDFFF) into that form, so the text it hands over is checked.
bool containsSurrogate(const char* text, size_t length)
{
    const char* end = text + length;
    for (const char* p = text; p < end; ++p)
    {
        p = static_cast<const char*>(std::memchr(p, '\xED', static_cast<size_t>(end - p)));
        if (!p)
            return false;
        if (p + 1 < end && static_cast<unsigned char>(p[1]) >= 0xA0)
            return true;
    }
    return false;
}

/// Leaves one member per name: at the position where the name first appears, with the value it
/// was given last.
void collapseRepeatedNames(Attributes& object)
{
    const size_t count = object.count();
    if (count < 2)
        return;

    // Small objects are checked pair by pair, which costs no allocation.
    constexpr size_t kPairwiseLimit = 16;
    if (count <= kPairwiseLimit)
    {
        bool repeated = false;
        for (size_t i = 1; i < count && !repeated; ++i)
            for (size_t j = 0; j < i && !repeated; ++j)
                repeated = object.at(i).name == object.at(j).name;
        if (!repeated)
            return;
    }

    std::unordered_map<std::string_view, size_t> lastIndex;
    lastIndex.reserve(count);
    bool repeated = false;
    for (size_t i = 0; i < count; ++i)
    {
        auto [entry, inserted] = lastIndex.try_emplace(object.at(i).name.view(), i);
        if (!inserted)
        {
            entry->second = i;
            repeated = true;
        }
    }
    if (!repeated)
        return;

    constexpr size_t kTaken = std::numeric_limits<size_t>::max();
    Attributes collapsed;
    for (size_t i = 0; i < count; ++i)
    {
        auto entry = lastIndex.find(object.at(i).name.view());
        if (entry->second == kTaken)
            continue;
        collapsed.add(object.at(i).name, object.at(entry->second).value);
        entry->second = kTaken;
    }
    object.clear();
    object.addAll(collapsed);
}

/// Receives the reader's events and builds the value tree. Every container is attached to its
/// parent as soon as it opens, so the root owns the whole partial tree at any moment and a
/// failed parse frees it by dropping the root.
class TreeBuilder
{
public:
    // The reader hands numbers over as text (see JsonReader::parse), but it compiles against the
    // whole handler interface.
    bool Null() { return put(Variant()); }
    bool Bool(bool value) { return put(Variant(value)); }
    bool Int(int value) { return put(Variant(value)); }
    bool Uint(unsigned value) { return put(Variant(static_cast<int64>(value))); }
    bool Int64(int64_t value) { return put(Variant(static_cast<int64>(value))); }
    bool Uint64(uint64_t value)
    {
        if (value > static_cast<uint64_t>(std::numeric_limits<int64>::max()))
            return put(Variant(static_cast<double>(value)));
        return put(Variant(static_cast<int64>(value)));
    }
    bool Double(double value) { return put(Variant(value)); }

    bool RawNumber(const char* text, rapidjson::SizeType length, bool)
    {
        Variant number;
        return convertNumber(std::string_view(text, length), number) && put(number);
    }

    bool String(const char* text, rapidjson::SizeType length, bool)
    {
        if (containsSurrogate(text, length))
            return false;
        return put(Variant(KVX::String(std::string_view(text, length))));
    }

    bool Key(const char* text, rapidjson::SizeType length, bool)
    {
        if (containsSurrogate(text, length))
            return false;
        key_.assign(text, length);
        return true;
    }

    bool StartObject()
    {
        if (open_.size() >= JsonReader::kMaxDepth)
            return false;
        auto object = makeRef<Attributes>();
        put(Variant(object));
        open_.push_back({object.get(), nullptr});
        return true;
    }

    bool EndObject(rapidjson::SizeType)
    {
        collapseRepeatedNames(*open_.back().object);
        open_.pop_back();
        return true;
    }

    bool StartArray()
    {
        if (open_.size() >= JsonReader::kMaxDepth)
            return false;
        auto array = makeRef<AttributeArray>();
        put(Variant(array));
        open_.push_back({nullptr, array.get()});
        return true;
    }

    bool EndArray(rapidjson::SizeType)
    {
        open_.pop_back();
        return true;
    }

    Variant& root() { return root_; }

private:
    /// An open container; the tree under root_ holds the reference.
    struct Open
    {
        Attributes* object;
        AttributeArray* array;
    };

    bool put(const Variant& value)
    {
        if (open_.empty())
            root_ = value;
        else if (open_.back().array)
            open_.back().array->append(value);
        else
            open_.back().object->add(key_, value);
        return true;
    }

    Variant root_;
    std::vector<Open> open_;
    std::string key_;
};

} // namespace

tresult JsonReader::parse(const void* data, uint64 length, Variant& result)
{
    if ((!data && length > 0) || length > kMaxLength)
        return kInvalidArgument;
    const char* bytes = data ? static_cast<const char*>(data) : "";

    // Numbers arrive as text and are converted here: the reader's own full-precision conversion
    // reads outside its tables for some valid inputs (a long run of fraction zeros before a large
    // negative exponent). The iterative mode keeps deep nesting off the call stack.
    constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                                rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseStopWhenDoneFlag;
    rapidjson::MemoryStream stream(bytes, static_cast<size_t>(length));
    TreeBuilder builder;
    rapidjson::Reader reader;
    if (reader.Parse<kFlags>(stream, builder).IsError())
        return kInvalidArgument;

    // The reader stops after the root value, and it would also take a NUL byte for the end of
    // the input; so what follows the root is checked here, up to the exact length.
    for (size_t i = stream.Tell(); i < length; ++i)
        if (!isJsonSpace(bytes[i]))
            return kInvalidArgument;

    result = std::move(builder.root());
    return kResultOk;
}

} // namespace KVX::Text
