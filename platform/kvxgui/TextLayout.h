#pragma once

#include "framework/interfaces/IThemeManager.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <memory>

namespace KVX::Gui {

/// Texts laid out by Pango for Cairo, the same way for measuring and for drawing: one line,
/// sizes in pixels, metrics neither hinted nor rounded, so that a width measured anywhere is
/// the width drawn on any picture.
class TextLayout
{
public:
    struct GObjectRelease
    {
        void operator()(void* object) const { g_object_unref(object); }
    };
    using Context = std::unique_ptr<PangoContext, GObjectRelease>;
    using Layout = std::unique_ptr<PangoLayout, GObjectRelease>;

    /// A context for drawing on `cr` with the settings above.
    static Context createContext(cairo_t* cr);
    /// `text` (UTF-8; invalid bytes are shown as replacement marks) on one line in `font`.
    static Layout createLayout(PangoContext* context, const char* text, const FontRecord& font);
    /// The logical width of the laid-out text in pixels.
    static double width(PangoLayout* layout);
    /// The width of `text` in `font`, measured on a context of the calling thread.
    static double measure(const char* text, const FontRecord& font);
};

} // namespace KVX::Gui
