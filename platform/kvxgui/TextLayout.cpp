#include "platform/kvxgui/TextLayout.h"

#include <cstring>
#include <string>

namespace KVX::Gui {

namespace {

/// The module's own font map, one per thread (Pango's font maps belong to one thread). Not the
/// thread's default map: that one belongs to the host, and it is never freed, while this one
/// goes, with its caches, when the thread ends and the last context made from it is gone.
class ThreadFontMap
{
public:
    ThreadFontMap() : fontMap_(pango_cairo_font_map_new()) {}
    ~ThreadFontMap() { g_object_unref(fontMap_); }
    ThreadFontMap(const ThreadFontMap&) = delete;
    ThreadFontMap& operator=(const ThreadFontMap&) = delete;

    PangoFontMap* get() const { return fontMap_; }

private:
    PangoFontMap* fontMap_;
};

PangoFontMap* threadFontMap()
{
    thread_local ThreadFontMap fontMap;
    return fontMap.get();
}

} // namespace

TextLayout::Context TextLayout::createContext(cairo_t* cr)
{
    Context context(pango_font_map_create_context(threadFontMap()));
    pango_cairo_update_context(cr, context.get());
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(context.get(), options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context.get(), FALSE);
    return context;
}

TextLayout::Layout TextLayout::createLayout(PangoContext* context, const char* text, const FontRecord& font)
{
    Layout layout(pango_layout_new(context));
    PangoFontDescription* description = pango_font_description_new();
    const std::string face(font.face, strnlen(font.face, sizeof font.face));
    pango_font_description_set_family(description, face.empty() ? "Sans" : face.c_str());
    const double size = font.size > 0 && font.size < 1000 ? font.size : 12;
    pango_font_description_set_absolute_size(description, size * PANGO_SCALE);
    pango_font_description_set_weight(description,
                                      font.style & FontRecord::kBold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_style(description,
                                     font.style & FontRecord::kItalic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    pango_layout_set_font_description(layout.get(), description);
    pango_font_description_free(description);
    pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
    pango_layout_set_text(layout.get(), text, -1);
    return layout;
}

double TextLayout::width(PangoLayout* layout)
{
    PangoRectangle logical{};
    pango_layout_get_extents(layout, nullptr, &logical);
    return pango_units_to_double(logical.width);
}

namespace {

/// A scratch surface and its context, one per thread, like the font map.
struct MeasuringContext
{
    MeasuringContext()
        : surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1)), cr(cairo_create(surface)),
          context(TextLayout::createContext(cr))
    {
    }
    ~MeasuringContext()
    {
        context.reset();
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }

    cairo_surface_t* surface;
    cairo_t* cr;
    TextLayout::Context context;
};

} // namespace

double TextLayout::measure(const char* text, const FontRecord& font)
{
    thread_local MeasuringContext measuring;
    return width(createLayout(measuring.context.get(), text, font).get());
}

} // namespace KVX::Gui
