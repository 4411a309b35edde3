#pragma once

#include "framework/core/Types.h"

#include <string>
#include <vector>

namespace KVX::Gui {

/// An image of a theme as its skin declares it. Its size is read from the PNG file when it is
/// first asked for.
struct ThemeImage
{
    std::string file;
    std::string frameNames;          ///< as declared, blank-separated; empty for unnamed frames
    std::vector<std::string> frames; ///< the same names one by one
    uint32 frameCount = 1;
    bool vertical = true;
    uint32 duration = 0;

    bool measured = false;
    uint32 width = 0;
    uint32 height = 0;
};

} // namespace KVX::Gui
