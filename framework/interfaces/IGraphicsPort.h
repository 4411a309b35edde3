#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/IThemeManager.h"
#include "framework/interfaces/RectRecord.h"

namespace KVX {

/// Where a view draws: a window's surface, a picture, or a recorder in a test. A list model
/// draws its cells through it. Colours are 0xRRGGBBAA; an alpha below 0xFF lets what is
/// underneath show through in that proportion. Texts are UTF-8 and terminated.
///
/// User-interface thread. Pointers passed in are read during the call only.
class IGraphicsPort : public IUnknown
{
public:
    /// Horizontal placement of a text in its rectangle; vertically it is always centred.
    enum Alignment : int32
    {
        kAlignLeft = 0,
        kAlignCenter = 1,
        kAlignRight = 2,
    };

    /// Fills `rect` with `rgba`. An empty rectangle draws nothing and succeeds. kInvalidArgument
    /// is reserved for a port that can no longer draw (its picture was written and closed).
    virtual tresult fillRect(const RectRecord& rect, uint32 rgba) = 0;
    /// Draws `text` on one line in `font` and `rgba`, placed by `alignment` (an Alignment) and
    /// clipped to `rect`. kInvalidArgument for a null text or an unknown alignment.
    virtual tresult drawText(const RectRecord& rect, const char* text, const FontRecord& font, uint32 rgba,
                             int32 alignment) = 0;
    /// The width in pixels that drawText would give `text` in `font`, with fractions. A font
    /// whose face is not installed is measured in the face that replaces it when drawing.
    /// kInvalidArgument (width 0) for a null text.
    virtual tresult measureText(const char* text, const FontRecord& font, double& width) = 0;

    static constexpr UID kIID = UID::fromString("{3F8A2C61-7D4E-4B19-9E05-A6C1D8B27F43}");
};

} // namespace KVX
