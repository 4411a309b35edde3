#include "framework/services/GuiServices.h"
#include "platform/kvxgui/ThemeManager.h"

using namespace KVX;

// Like the module's other services, the theme manager lives as long as the process.
IThemeManager* GetThemeManager()
{
    static Gui::ThemeManager* manager = makeRef<Gui::ThemeManager>().detach();
    return manager;
}
