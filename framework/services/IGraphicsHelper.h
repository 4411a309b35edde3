#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/IGraphicsPort.h"
#include "framework/interfaces/IItemModel.h"
#include "framework/interfaces/IThemeManager.h"
#include "framework/interfaces/IViewStyle.h"
#include "framework/interfaces/RectRecord.h"
#include "framework/services/IImagePort.h"

namespace KVX {

/// The graphics operations of the host's graphics module behind the drawing of views: text
/// measurement, pictures to draw into, a theme's styles as views read them, and whole list
/// views drawn from their models.
///
/// Fonts: the face is found by the system's font configuration (a face that is not installed
/// is replaced by one with the same metrics where there is one, as "Arial" by Liberation Sans);
/// the size counts pixels. Measuring and drawing use the same layout, so a text measured to
/// fit does fit. User-interface thread, except measureText, which any thread may call.
class IGraphicsHelper : public IUnknown
{
public:
    /// The width in pixels of `text` (UTF-8) on one line in `font`. kInvalidArgument (width 0)
    /// for a null text.
    virtual tresult measureText(const char* text, const FontRecord& font, double& width) = 0;
    /// A picture of `width` by `height` pixels (1 to 16384 each) filled with `background`, and a
    /// port that draws into it; the caller owns the reference stored in `*port`.
    /// kInvalidArgument for a size out of range or a null `port`.
    virtual tresult createImagePort(int32 width, int32 height, uint32 background, IImagePort** port) = 0;
    /// The style `styleName` of the theme loaded as `themeName` by the theme manager, with what
    /// it inherits; the caller owns the reference stored in `*style`. The style keeps its theme
    /// alive. kInvalidArgument when there is no such theme; a style name the theme does not
    /// know gives a style without entries.
    virtual tresult createViewStyle(const char* themeName, const char* styleName, IViewStyle** style) = 0;
    /// Draws `model` as a list view fills `area` of `port`: the header (column titles in
    /// `headerStyle`, "headerHeight" tall; none when `headerStyle` is null), then one row per
    /// item, "rowHeight" of `style` tall, on its "backcolor" with a line in "gridcolor" under
    /// each, every cell drawn by the model. Rows below the area are left out.
    /// kInvalidArgument for a null model, style or port.
    virtual tresult drawListView(IItemModel* model, IViewStyle* style, IViewStyle* headerStyle, IGraphicsPort* port,
                                 const RectRecord& area) = 0;

    static constexpr UID kIID = UID::fromString("{C7A05E39-8B62-4D14-9F3E-2A6D8C1B7F90}");
};

} // namespace KVX
