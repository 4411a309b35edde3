#pragma once

#include "framework/graphics/StyleReader.h"
#include "framework/interfaces/IGraphicsPort.h"
#include "framework/text/String.h"

namespace KVX {

/// One cell being drawn: the port and rectangle it is drawn into, the view's style, which
/// column it is, and the text style the model chose for it. Texts are drawn in the style's
/// "textfont" with the text style's bits, in "textcolor" unless a colour is given, at full
/// intensity or dimmed. Lives for one drawing call; user-interface thread.
class ListCell
{
public:
    ListCell(IGraphicsPort& port, const RectRecord& rect, IViewStyle* style, int32 column, std::string_view columnId)
        : port_(port), rect_(rect), style_(style), column_(column), columnId_(columnId)
    {
    }

    IGraphicsPort& port() const { return port_; }
    const RectRecord& rect() const { return rect_; }
    int32 width() const { return rect_.right > rect_.left ? rect_.right - rect_.left : 0; }
    int32 column() const { return column_; }
    const CString& columnId() const { return columnId_; }
    const StyleReader& style() const { return style_; }

    /// The cell's own text style (FontRecord::Style bits): plain unless the model set another.
    uint32 fontStyle() const { return fontStyle_; }
    void setFontStyle(uint32 fontStyle) { fontStyle_ = fontStyle; }

    /// The style's "textfont" with `fontStyle` in place of its own style bits.
    FontRecord textFont(uint32 fontStyle) const;
    /// The width of `text` in textFont(fontStyle), in pixels.
    double measureText(const String& text, uint32 fontStyle) const;
    /// Draws `text` in "textcolor", halved in intensity when `dimmed`.
    void drawText(const String& text, uint32 fontStyle, bool dimmed, int32 alignment = IGraphicsPort::kAlignLeft) const;
    void drawText(const String& text, uint32 fontStyle, uint32 rgba, int32 alignment) const;
    /// Fills the cell from its left edge across `fraction` (0 to 1; clamped) of its width.
    void fill(double fraction, uint32 rgba) const;

private:
    IGraphicsPort& port_;
    RectRecord rect_;
    StyleReader style_;
    int32 column_;
    CString columnId_;
    uint32 fontStyle_ = FontRecord::kNormal;
};

} // namespace KVX
