#pragma once

#include "framework/interfaces/IThemeManager.h"

#include <string>
#include <unordered_map>

namespace KVX::Gui {

/// The settings of one style of a theme, as its skin declares them; what it inherits is looked
/// up through `inherit` when asked for.
struct ThemeStyle
{
    std::string inherit;
    std::unordered_map<std::string, uint32> colors;
    std::unordered_map<std::string, double> metrics;
    std::unordered_map<std::string, FontRecord> fonts;
};

} // namespace KVX::Gui
