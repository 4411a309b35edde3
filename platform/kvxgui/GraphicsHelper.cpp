#include "platform/kvxgui/GraphicsHelper.h"

#include "framework/core/Ref.h"
#include "framework/services/GuiServices.h"
#include "platform/kvxgui/ImagePort.h"
#include "platform/kvxgui/ListViewPainter.h"
#include "platform/kvxgui/TextLayout.h"
#include "platform/kvxgui/ThemeViewStyle.h"

namespace KVX::Gui {

KVX_DEFINE_CLASS(GraphicsHelper, Object, "GraphicsHelper")

tresult GraphicsHelper::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IGraphicsHelper)
    return Object::queryInterface(iid, object);
}

tresult GraphicsHelper::measureText(const char* text, const FontRecord& font, double& width)
{
    width = 0;
    if (!text)
        return kInvalidArgument;
    width = TextLayout::measure(text, font);
    return kResultOk;
}

tresult GraphicsHelper::createImagePort(int32 width, int32 height, uint32 background, IImagePort** port)
{
    if (!port)
        return kInvalidArgument;
    *port = nullptr;
    if (width < 1 || height < 1 || width > kMaximumSize || height > kMaximumSize)
        return kInvalidArgument;
    *port = makeRef<ImagePort>(width, height, background).detach();
    return kResultOk;
}

tresult GraphicsHelper::createViewStyle(const char* themeName, const char* styleName, IViewStyle** style)
{
    if (!style)
        return kInvalidArgument;
    *style = nullptr;
    ITheme* theme = themeName ? GetThemeManager()->getTheme(themeName) : nullptr;
    if (!theme)
        return kInvalidArgument;
    *style = makeRef<ThemeViewStyle>(theme, styleName).detach();
    return kResultOk;
}

tresult GraphicsHelper::drawListView(IItemModel* model, IViewStyle* style, IViewStyle* headerStyle, IGraphicsPort* port,
                                     const RectRecord& area)
{
    if (!model || !style || !port)
        return kInvalidArgument;
    // The model may be released by whatever a cell's drawing sets off; it stays for the call.
    Ref<IItemModel> keep(model);
    ListViewPainter(*model, *style, headerStyle).draw(*port, area);
    return kResultOk;
}

} // namespace KVX::Gui
