#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/IThemeManager.h"

namespace KVX {

/// The style a view draws with, as a theme declares it ("TrackList"): colours, metrics and
/// fonts by name, with what the style inherits already taken into account. A view hands its
/// style to the model that draws its cells. User-interface thread; names are UTF-8, terminated.
class IViewStyle : public IUnknown
{
public:
    /// The style's name ("TrackList"); valid as long as the style lives. Never null.
    virtual const char* getStyleName() = 0;
    /// The colour `name` as 0xRRGGBBAA. kInvalidArgument, `rgba` untouched, when the style does
    /// not define it.
    virtual tresult getColor(const char* name, uint32& rgba) = 0;
    /// The metric `name` ("rowHeight"). kInvalidArgument, `value` untouched, when undefined.
    virtual tresult getMetric(const char* name, double& value) = 0;
    /// The font `name` ("textfont"). kInvalidArgument, `font` untouched, when undefined.
    virtual tresult getFont(const char* name, FontRecord& font) = 0;

    static constexpr UID kIID = UID::fromString("{9C2E5B47-1A8D-4F36-B0E9-7D3F6A2C8E51}");
};

} // namespace KVX
