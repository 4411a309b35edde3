#pragma once

#include "framework/core/Types.h"

#include <string_view>

namespace KVX::Gui {

/// Colour values as a skin writes them.
class ThemeColor
{
public:
    /// Reads "#rrggbb", "#rrggbbaa", the same without "#" ("031339"), or a colour name (black,
    /// white, grey or gray, silver, red, maroon, yellow, olive, lime, green, aqua, teal, blue,
    /// navy, fuchsia, purple, orange, transparent; any letter case) into 0xRRGGBBAA. False
    /// for anything else; `rgba` is then unchanged.
    static bool parse(std::string_view text, uint32& rgba);
    /// Six or eight hexadecimal digits, without "#".
    static bool parseDigits(std::string_view digits, uint32& rgba);
    /// A colour name of the list above.
    static bool parseName(std::string_view name, uint32& rgba);
};

} // namespace KVX::Gui
