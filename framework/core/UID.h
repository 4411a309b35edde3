#pragma once

#include "framework/core/Types.h"
#include "framework/text/HexDigit.h"

#include <array>
#include <string>
#include <string_view>

namespace KVX {

/// A 16-byte identifier of an interface or a class. The bytes are kept in the order in which the
/// text form "{8-4-4-4-12}" writes them, so equal texts give equal identifiers.
class UID
{
public:
    constexpr UID() = default;

    /// Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (braces optional, either letter case).
    /// Returns false and leaves the target unchanged when the text is not of that form.
    static constexpr bool parse(std::string_view text, UID& result)
    {
        if (text.size() == 38)
        {
            if (text.front() != '{' || text.back() != '}')
                return false;
            text = text.substr(1, 36);
        }
        if (text.size() != 36)
            return false;
        UID parsed;
        int byte = 0;
        for (size_t i = 0; i < text.size();)
        {
            if (i == 8 || i == 13 || i == 18 || i == 23)
            {
                if (text[i] != '-')
                    return false;
                ++i;
                continue;
            }
            int high = hexDigitValue(text[i]), low = hexDigitValue(text[i + 1]);
            if (high < 0 || low < 0)
                return false;
            parsed.bytes_[byte++] = static_cast<uint8>(high * 16 + low);
            i += 2;
        }
        result = parsed;
        return true;
    }

    /// For identifiers written in the source: an invalid literal fails to compile when used in a
    /// constant expression.
    static consteval UID fromString(std::string_view text)
    {
        UID result;
        if (!parse(text, result))
            throw "invalid UID literal";
        return result;
    }

    /// The text form with braces and upper-case digits.
    std::string toString() const;

    constexpr const std::array<uint8, 16>& bytes() const { return bytes_; }
    constexpr bool isNull() const
    {
        for (auto b : bytes_)
            if (b != 0)
                return false;
        return true;
    }

    constexpr bool operator==(const UID&) const = default;

private:
    std::array<uint8, 16> bytes_{};
};

} // namespace KVX
