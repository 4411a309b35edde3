#pragma once

#include "framework/core/Object.h"
#include "framework/services/IImagePort.h"
#include "platform/kvxgui/TextLayout.h"

namespace KVX::Gui {

/// IImagePort on a Cairo image surface, with texts laid out by Pango. User-interface thread.
class ImagePort : public Object, public IImagePort
{
    KVX_DECLARE_CLASS(ImagePort, Object)
public:
    /// A picture of the given size, filled with `background`. Sizes are checked by the caller.
    ImagePort(int32 width, int32 height, uint32 background);
    ~ImagePort() override;
    ImagePort(const ImagePort&) = delete;
    ImagePort& operator=(const ImagePort&) = delete;

    tresult fillRect(const RectRecord& rect, uint32 rgba) override;
    tresult drawText(const RectRecord& rect, const char* text, const FontRecord& font, uint32 rgba,
                     int32 alignment) override;
    tresult measureText(const char* text, const FontRecord& font, double& width) override;
    int32 getWidth() override { return width_; }
    int32 getHeight() override { return height_; }
    tresult readPixel(int32 x, int32 y, uint32& rgba) override;
    tresult writePng(const char* path) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    void setColor(uint32 rgba);

    int32 width_;
    int32 height_;
    cairo_surface_t* surface_;
    cairo_t* cr_;
    TextLayout::Context context_;
};

} // namespace KVX::Gui
