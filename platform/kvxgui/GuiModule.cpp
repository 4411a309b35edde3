#include "framework/services/GuiServices.h"
#include "platform/kvxgui/AlertService.h"
#include "platform/kvxgui/SystemShell.h"

using namespace KVX;

// The services live as long as the process: they are created on first use and never destroyed,
// so that no static destructor runs while another module still calls them.

IAlertService* GetAlertService()
{
    static Gui::AlertService* service = makeRef<Gui::AlertService>().detach();
    return service;
}

ISystemShell* GetSystemShell()
{
    static Gui::SystemShell* shell = makeRef<Gui::SystemShell>().detach();
    return shell;
}
