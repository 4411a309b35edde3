#pragma once

#include "framework/core/Object.h"
#include "framework/services/IGraphicsHelper.h"

namespace KVX::Gui {

/// IGraphicsHelper on Pango and Cairo, with the theme manager's themes for styles.
class GraphicsHelper : public Object, public IGraphicsHelper
{
    KVX_DECLARE_CLASS(GraphicsHelper, Object)
public:
    tresult measureText(const char* text, const FontRecord& font, double& width) override;
    tresult createImagePort(int32 width, int32 height, uint32 background, IImagePort** port) override;
    tresult createViewStyle(const char* themeName, const char* styleName, IViewStyle** style) override;
    tresult drawListView(IItemModel* model, IViewStyle* style, IViewStyle* headerStyle, IGraphicsPort* port,
                         const RectRecord& area) override;
    KVX_FORWARD_UNKNOWN(Object)

    static constexpr int32 kMaximumSize = 16384;
};

} // namespace KVX::Gui
