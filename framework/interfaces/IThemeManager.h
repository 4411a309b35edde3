#pragma once

#include "framework/core/IUnknown.h"

#include <type_traits>

namespace KVX {

/// A font as a theme style names it.
struct FontRecord
{
    enum Style : uint32
    {
        kNormal = 0,
        kBold = 1 << 0,
        kItalic = 1 << 1,
    };

    char face[64]; ///< family name, UTF-8, terminated ("Arial")
    double size;   ///< in points
    uint32 style;  ///< Style bits
};

static_assert(std::is_trivially_copyable_v<FontRecord> && std::is_standard_layout_v<FontRecord>);

/// One loaded theme: its styles (colours, metrics, fonts by style and setting name, with the
/// inheritance the theme declares), images and forms. Lives as long as the theme manager keeps
/// it. User-interface thread.
class ITheme : public IUnknown
{
public:
    /// The colour `name` of `style` as 0xRRGGBBAA. kInvalidArgument when neither the style nor
    /// a style it inherits from defines it.
    virtual tresult getColor(const char* style, const char* name, uint32& rgba) = 0;
    /// The metric `name` of `style` ("rowHeight"). kInvalidArgument when undefined.
    virtual tresult getMetric(const char* style, const char* name, double& value) = 0;
    /// The font `name` of `style` ("textfont"). kInvalidArgument when undefined.
    virtual tresult getFont(const char* style, const char* name, FontRecord& font) = 0;

    static constexpr UID kIID = UID::fromString("{E2C94A61-8B37-4F5D-A06E-3D1F7B9C5A42}");
};

/// The host's theme manager: loads the theme packages that modules carry and finds themes by
/// name. User-interface thread.
class IThemeManager : public IUnknown
{
public:
    /// Loads a theme package from `size` bytes at `data` (the module's resource); the manager
    /// copies what it keeps. kInvalidArgument for a package that cannot be read (wrong magic,
    /// entries that do not inflate to their size, offsets outside the data).
    virtual tresult loadTheme(const char* themeName, const void* data, uint64 size) = 0;
    /// The theme loaded under `themeName`, without a reference (valid as long as the manager
    /// keeps it), or null.
    virtual ITheme* getTheme(const char* themeName) = 0;

    static constexpr UID kIID = UID::fromString("{7A3D1F58-C2E9-4B64-8F07-B5E8A2D4C916}");
};

} // namespace KVX
