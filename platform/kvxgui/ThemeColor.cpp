#include "platform/kvxgui/ThemeColor.h"

#include "framework/text/HexDigit.h"

#include <array>
#include <utility>

namespace KVX::Gui {

bool ThemeColor::parse(std::string_view text, uint32& rgba)
{
    if (!text.empty() && text.front() == '#')
        return parseDigits(text.substr(1), rgba);
    return parseName(text, rgba) || parseDigits(text, rgba);
}

bool ThemeColor::parseDigits(std::string_view digits, uint32& rgba)
{
    if (digits.size() != 6 && digits.size() != 8)
        return false;
    uint32 value = 0;
    for (char c : digits)
    {
        const int digit = hexDigitValue(c);
        if (digit < 0)
            return false;
        value = value << 4 | uint32(digit);
    }
    rgba = digits.size() == 6 ? value << 8 | 0xFF : value;
    return true;
}

bool ThemeColor::parseName(std::string_view name, uint32& rgba)
{
    static constexpr std::array<std::pair<std::string_view, uint32>, 19> kNames = {{
        {"black", 0x000000FF},  {"white", 0xFFFFFFFF},  {"grey", 0x808080FF},        {"gray", 0x808080FF},
        {"silver", 0xC0C0C0FF}, {"red", 0xFF0000FF},    {"maroon", 0x800000FF},      {"yellow", 0xFFFF00FF},
        {"olive", 0x808000FF},  {"lime", 0x00FF00FF},   {"green", 0x008000FF},       {"aqua", 0x00FFFFFF},
        {"teal", 0x008080FF},   {"blue", 0x0000FFFF},   {"navy", 0x000080FF},        {"fuchsia", 0xFF00FFFF},
        {"purple", 0x800080FF}, {"orange", 0xFFA500FF}, {"transparent", 0x00000000},
    }};
    for (const auto& [known, value] : kNames)
    {
        if (known.size() != name.size())
            continue;
        bool same = true;
        for (size_t i = 0; i < name.size() && same; ++i)
        {
            char c = name[i];
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
            same = c == known[i];
        }
        if (same)
        {
            rgba = value;
            return true;
        }
    }
    return false;
}

} // namespace KVX::Gui
