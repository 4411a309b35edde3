#include "framework/list/ListCell.h"

#include "framework/graphics/Color.h"

#include <algorithm>
#include <cmath>

namespace KVX {

FontRecord ListCell::textFont(uint32 fontStyle) const
{
    FontRecord font = style_.font("textfont");
    font.style = fontStyle;
    return font;
}

double ListCell::measureText(const String& text, uint32 fontStyle) const
{
    double width = 0;
    if (port_.measureText(text.toUtf8().c_str(), textFont(fontStyle), width) != kResultOk)
        return 0;
    return width;
}

void ListCell::drawText(const String& text, uint32 fontStyle, bool dimmed, int32 alignment) const
{
    const uint32 color = style_.color("textcolor");
    drawText(text, fontStyle, dimmed ? Color::dimmed(color) : color, alignment);
}

void ListCell::drawText(const String& text, uint32 fontStyle, uint32 rgba, int32 alignment) const
{
    port_.drawText(rect_, text.toUtf8().c_str(), textFont(fontStyle), rgba, alignment);
}

void ListCell::fill(double fraction, uint32 rgba) const
{
    if (!(fraction > 0)) // also NaN
        return;
    fraction = std::min(fraction, 1.0);
    RectRecord bar = rect_;
    bar.right = rect_.left + static_cast<int32>(std::lround(width() * fraction));
    port_.fillRect(bar, rgba);
}

} // namespace KVX
