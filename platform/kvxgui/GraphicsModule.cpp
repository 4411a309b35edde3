#include "framework/core/Ref.h"
#include "framework/services/GuiServices.h"
#include "platform/kvxgui/GraphicsHelper.h"

using namespace KVX;

// Like the module's other services, the graphics helper lives as long as the process.
IGraphicsHelper* GetGraphicsHelper()
{
    static Gui::GraphicsHelper* helper = makeRef<Gui::GraphicsHelper>().detach();
    return helper;
}
