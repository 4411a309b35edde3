#include "platform/kvxgui/ImagePort.h"

#include <cstring>

namespace KVX::Gui {

KVX_DEFINE_CLASS(ImagePort, Object, "ImagePort")

ImagePort::ImagePort(int32 width, int32 height, uint32 background)
    : width_(width), height_(height), surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)),
      cr_(cairo_create(surface_)), context_(TextLayout::createContext(cr_))
{
    fillRect({0, 0, width, height}, background);
}

ImagePort::~ImagePort()
{
    context_.reset();
    cairo_destroy(cr_);
    cairo_surface_destroy(surface_);
}

tresult ImagePort::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IImagePort)
    KVX_QUERY_INTERFACE(iid, object, IGraphicsPort)
    return Object::queryInterface(iid, object);
}

void ImagePort::setColor(uint32 rgba)
{
    cairo_set_source_rgba(cr_, (rgba >> 24) / 255.0, ((rgba >> 16) & 0xFF) / 255.0, ((rgba >> 8) & 0xFF) / 255.0,
                          (rgba & 0xFF) / 255.0);
}

tresult ImagePort::fillRect(const RectRecord& rect, uint32 rgba)
{
    if (rect.right <= rect.left || rect.bottom <= rect.top)
        return kResultOk;
    setColor(rgba);
    cairo_rectangle(cr_, rect.left, rect.top, double(rect.right) - rect.left, double(rect.bottom) - rect.top);
    cairo_fill(cr_);
    return kResultOk;
}

tresult ImagePort::drawText(const RectRecord& rect, const char* text, const FontRecord& font, uint32 rgba,
                            int32 alignment)
{
    if (!text || alignment < kAlignLeft || alignment > kAlignRight)
        return kInvalidArgument;
    if (rect.right <= rect.left || rect.bottom <= rect.top || !*text)
        return kResultOk;

    TextLayout::Layout layout = TextLayout::createLayout(context_.get(), text, font);
    PangoRectangle logical{};
    pango_layout_get_extents(layout.get(), nullptr, &logical);
    const double textWidth = pango_units_to_double(logical.width);
    const double textHeight = pango_units_to_double(logical.height);
    const double cellWidth = double(rect.right) - rect.left;
    double x = rect.left;
    if (alignment == kAlignCenter)
        x += (cellWidth - textWidth) / 2;
    else if (alignment == kAlignRight)
        x += cellWidth - textWidth;
    const double y = rect.top + ((double(rect.bottom) - rect.top) - textHeight) / 2;

    cairo_save(cr_);
    cairo_rectangle(cr_, rect.left, rect.top, cellWidth, double(rect.bottom) - rect.top);
    cairo_clip(cr_);
    setColor(rgba);
    cairo_move_to(cr_, x - pango_units_to_double(logical.x), y - pango_units_to_double(logical.y));
    pango_cairo_show_layout(cr_, layout.get());
    cairo_restore(cr_);
    return kResultOk;
}

tresult ImagePort::measureText(const char* text, const FontRecord& font, double& width)
{
    width = 0;
    if (!text)
        return kInvalidArgument;
    width = TextLayout::width(TextLayout::createLayout(context_.get(), text, font).get());
    return kResultOk;
}

tresult ImagePort::readPixel(int32 x, int32 y, uint32& rgba)
{
    if (x < 0 || y < 0 || x >= width_ || y >= height_)
        return kInvalidArgument;
    cairo_surface_flush(surface_);
    const unsigned char* row = cairo_image_surface_get_data(surface_) + y * cairo_image_surface_get_stride(surface_);
    uint32 pixel = 0;
    std::memcpy(&pixel, row + x * 4, 4);
    // Cairo keeps native-endian ARGB with the colour premultiplied by the alpha.
    const uint32 alpha = pixel >> 24;
    auto channel = [alpha](uint32 value) { return alpha ? (value * 255 + alpha / 2) / alpha : 0; };
    rgba =
        channel((pixel >> 16) & 0xFF) << 24 | channel((pixel >> 8) & 0xFF) << 16 | channel(pixel & 0xFF) << 8 | alpha;
    return kResultOk;
}

tresult ImagePort::writePng(const char* path)
{
    if (!path)
        return kInvalidArgument;
    cairo_surface_flush(surface_);
    return cairo_surface_write_to_png(surface_, path) == CAIRO_STATUS_SUCCESS ? kResultOk : kUnexpected;
}

} // namespace KVX::Gui
