#include "platform/kvxtext/JsonReader.h"

#include "framework/services/IJsonHandler.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
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

/// One number as the tokenizer accepted it: an integer when it is integral and fits, or else the
/// nearest double.
struct Number
{
    bool isInteger = false;
    int64 integer = 0;
    double real = 0.0;
};

/// Converts one number. False when it is beyond the range of a double.
bool convertNumber(std::string_view text, Number& value)
{
    const char* begin = text.data();
    const char* end = begin + text.size();
    if (text.find_first_of(".eE") == std::string_view::npos)
    {
        int64 integer = 0;
        auto [stop, error] = std::from_chars(begin, end, integer);
        if (error == std::errc() && stop == end)
        {
            value.isInteger = true;
            value.integer = integer;
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
    value.real = number;
    return true;
}

/// A surrogate code point has the three-byte form ED A0..BF xx, which is not UTF-8. RapidJSON
/// refuses such raw bytes and unpaired high surrogate escapes, but it decodes a lone low
/// surrogate escape (\uDC00 to \uDFFF) into that form, so the text it hands over is checked.
/// Most texts are ASCII, which is passed over eight bytes at a time.
bool containsSurrogate(const char* text, size_t length)
{
    constexpr uint64_t kHighBits = 0x8080808080808080u;
    size_t i = 0;
    for (; i + 8 <= length; i += 8)
    {
        uint64_t word;
        std::memcpy(&word, text + i, sizeof word);
        if (word & kHighBits)
            break;
    }
    for (; i + 1 < length; ++i)
        if (text[i] == '\xED' && static_cast<unsigned char>(text[i + 1]) >= 0xA0)
            return true;
    return false;
}

/// Receives the tokenizer's events and hands them on to the receiver, checking what the
/// tokenizer leaves unchecked (surrogates, nesting depth). The first refusal is kept: a result
/// of the receiver is returned as it is, one of the checks as invalid input.
class Forwarder
{
public:
    explicit Forwarder(IJsonHandler& handler) : handler_(handler) {}

    // The reader hands numbers over as text (see JsonReader::parse), but it compiles against the
    // whole handler interface.
    bool Null() { return take(handler_.onNull()); }
    bool Bool(bool value) { return take(handler_.onInteger(value ? 1 : 0)); }
    bool Int(int value) { return take(handler_.onInteger(value)); }
    bool Uint(unsigned value) { return take(handler_.onInteger(static_cast<int64>(value))); }
    bool Int64(int64_t value) { return take(handler_.onInteger(static_cast<int64>(value))); }
    bool Uint64(uint64_t value)
    {
        if (value > static_cast<uint64_t>(std::numeric_limits<int64>::max()))
            return take(handler_.onDouble(static_cast<double>(value)));
        return take(handler_.onInteger(static_cast<int64>(value)));
    }
    bool Double(double value) { return take(handler_.onDouble(value)); }

    bool RawNumber(const char* text, rapidjson::SizeType length, bool)
    {
        Number number;
        if (!convertNumber(std::string_view(text, length), number))
            return take(kInvalidArgument);
        return take(number.isInteger ? handler_.onInteger(number.integer) : handler_.onDouble(number.real));
    }

    bool String(const char* text, rapidjson::SizeType length, bool)
    {
        if (containsSurrogate(text, length))
            return take(kInvalidArgument);
        return take(handler_.onString(text, length));
    }

    bool Key(const char* text, rapidjson::SizeType length, bool)
    {
        if (containsSurrogate(text, length))
            return take(kInvalidArgument);
        return take(handler_.onKey(text, length));
    }

    bool StartObject()
    {
        if (++depth_ > JsonReader::kMaxDepth)
            return take(kInvalidArgument);
        return take(handler_.onStartObject());
    }
    bool EndObject(rapidjson::SizeType)
    {
        --depth_;
        return take(handler_.onEndObject());
    }
    bool StartArray()
    {
        if (++depth_ > JsonReader::kMaxDepth)
            return take(kInvalidArgument);
        return take(handler_.onStartArray());
    }
    bool EndArray(rapidjson::SizeType)
    {
        --depth_;
        return take(handler_.onEndArray());
    }

    /// What stopped the parse, kResultOk when nothing did.
    tresult refusal() const { return refusal_; }

private:
    bool take(tresult result)
    {
        if (result != kResultOk && refusal_ == kResultOk)
            refusal_ = result;
        return result == kResultOk;
    }

    IJsonHandler& handler_;
    int depth_ = 0;
    tresult refusal_ = kResultOk;
};

} // namespace

tresult JsonReader::parse(const void* data, uint64 length, IJsonHandler& handler)
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
    Forwarder forwarder(handler);
    rapidjson::Reader reader;
    if (reader.Parse<kFlags>(stream, forwarder).IsError())
        return forwarder.refusal() != kResultOk ? forwarder.refusal() : kInvalidArgument;

    // The reader stops after the root value, and it would also take a NUL byte for the end of
    // the input; so what follows the root is checked here, up to the exact length.
    for (size_t i = stream.Tell(); i < length; ++i)
        if (!isJsonSpace(bytes[i]))
            return kInvalidArgument;

    return kResultOk;
}

} // namespace KVX::Text
