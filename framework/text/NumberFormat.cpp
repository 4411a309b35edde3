#include "framework/text/NumberFormat.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace KVX {
namespace {

std::string_view stripSpace(std::string_view text)
{
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

/// Strips surrounding white space and a leading "+" that from_chars does not accept. False when
/// nothing is left, or when the "+" is followed by a second sign that from_chars would take.
bool stripSpaceAndPlus(std::string_view& text)
{
    text = stripSpace(text);
    if (!text.empty() && text.front() == '+')
    {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-')
            return false;
    }
    return !text.empty();
}

} // namespace

bool NumberFormat::parseInt64(std::string_view text, int64& result)
{
    if (!stripSpaceAndPlus(text))
        return false;
    int64 value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 10);
    if (error != std::errc() || end != text.data() + text.size())
        return false;
    result = value;
    return true;
}

bool NumberFormat::parseDouble(std::string_view text, double& result)
{
    if (!stripSpaceAndPlus(text))
        return false;
    double value = 0;
    auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::general);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
        return false;
    result = value;
    return true;
}

int64 NumberFormat::toInt64(std::string_view text)
{
    int64 value = 0;
    return parseInt64(text, value) ? value : 0;
}

double NumberFormat::toDouble(std::string_view text)
{
    double value = 0;
    return parseDouble(text, value) ? value : 0.0;
}

CString NumberFormat::formatInt64(int64 value)
{
    char buffer[32];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return CString(buffer, static_cast<size_t>(end - buffer));
}

CString NumberFormat::formatDouble(double value)
{
    char buffer[64];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return CString(buffer, static_cast<size_t>(end - buffer));
}

CString NumberFormat::formatFixed(double value, int decimals)
{
    decimals = std::clamp(decimals, 0, 20);
    if (!std::isfinite(value))
    {
        char small[32];
        auto [end, error] = std::to_chars(small, small + sizeof small, value);
        return CString(small, static_cast<size_t>(end - small));
    }
    // The C library rounds an exact tie to even (42.25 -> "42.2"). To round ties away from zero,
    // write the exact decimal expansion (a double has at most 53 - exponent fraction digits) and
    // round that text by hand. to_chars, unlike printf, ignores the C locale's decimal comma.
    int exponent = 0;
    std::frexp(value, &exponent);
    int precision = std::max(decimals + 1, std::clamp(53 - exponent, 0, 1074));
    std::string text(static_cast<size_t>(precision) + 320, '\0');
    auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, precision);
    text.resize(static_cast<size_t>(end - text.data()));
    size_t point = text.find('.');
    bool carry = text[point + 1 + static_cast<size_t>(decimals)] >= '5';
    text.resize(decimals > 0 ? point + 1 + static_cast<size_t>(decimals) : point);
    for (size_t i = text.size(); carry && i-- > 0;)
    {
        char& c = text[i];
        if (c == '-')
        {
            text.insert(i + 1, 1, '1');
            carry = false;
        }
        else if (c == '9')
            c = '0';
        else if (c != '.')
        {
            ++c;
            carry = false;
        }
    }
    if (carry)
        text.insert(0, 1, '1');
    return CString(std::move(text));
}

int64 NumberFormat::truncate(double value)
{
    if (std::isnan(value))
        return 0;
    // 2^63 is exactly representable; anything at or beyond it does not fit.
    constexpr double kLimit = 9223372036854775808.0;
    if (value >= kLimit)
        return std::numeric_limits<int64>::max();
    if (value < -kLimit)
        return std::numeric_limits<int64>::min();
    return static_cast<int64>(value);
}

} // namespace KVX
