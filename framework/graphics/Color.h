#pragma once

#include "framework/core/Types.h"

namespace KVX {

/// Colours as the graphics port takes them: 0xRRGGBBAA.
class Color
{
public:
    static constexpr uint32 kBlack = 0x000000FF;
    static constexpr uint32 kWhite = 0xFFFFFFFF;

    static constexpr uint32 red(uint32 rgba) { return rgba >> 24; }
    static constexpr uint32 green(uint32 rgba) { return (rgba >> 16) & 0xFF; }
    static constexpr uint32 blue(uint32 rgba) { return (rgba >> 8) & 0xFF; }
    static constexpr uint32 alpha(uint32 rgba) { return rgba & 0xFF; }
    static constexpr uint32 fromRGBA(uint32 r, uint32 g, uint32 b, uint32 a = 0xFF)
    {
        return (r & 0xFF) << 24 | (g & 0xFF) << 16 | (b & 0xFF) << 8 | (a & 0xFF);
    }

    /// The colour mixed to half intensity: drawn over any background it comes out halfway
    /// between itself and that background. Done through the alpha, not by darkening, so that
    /// dimmed black text turns grey on a light row instead of staying black.
    static constexpr uint32 dimmed(uint32 rgba) { return (rgba & 0xFFFFFF00) | (alpha(rgba) / 2); }
};

} // namespace KVX
