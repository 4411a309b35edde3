#pragma once

#include "framework/core/Ref.h"
#include "framework/interfaces/IViewStyle.h"

#include <string_view>

namespace KVX {

/// Reads a view style for drawing code, with a defined answer for whatever the style lacks: a
/// missing colour is black, a missing font the default font, a missing metric the caller's
/// fallback. A theme with a missing entry is a mistake of the theme, not of the user, so debug
/// builds report each missing entry once on standard error and release builds stay silent.
/// A null style lacks everything. User-interface thread.
class StyleReader
{
public:
    explicit StyleReader(IViewStyle* style) : style_(style) {}

    IViewStyle* style() const { return style_; }

    uint32 color(std::string_view name) const;
    FontRecord font(std::string_view name) const;
    double metric(std::string_view name, double fallback) const;

    /// What a missing font reads as: 12 pixels of the system's sans-serif face.
    static FontRecord defaultFont();
    /// How many different missing entries have been reported so far (debug builds; 0 otherwise).
    static int reportedCount();

private:
    void reportMissing(std::string_view kind, std::string_view name) const;

    Ref<IViewStyle> style_;
};

} // namespace KVX
