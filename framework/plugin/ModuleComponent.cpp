#include "framework/plugin/ModuleComponent.h"

#include "framework/plugin/ModuleResources.h"
#include "framework/services/GuiServices.h"

#include <cstdio>
#include <string>

namespace KVX {

KVX_DEFINE_CLASS(ModuleComponent, Component, "ModuleComponent")

bool ModuleComponent::getProperty(Variant& value, std::string_view name) const
{
    const CString* text = name == "moduleId" ? &moduleId_ : name == "vendor" ? &vendor_ : name == "title" ? &title_ : nullptr;
    if (!text)
        return Component::getProperty(value, name);
    value = String(text->view());
    return true;
}

bool ModuleComponent::loadTheme(std::string_view themeName, std::string_view resourceName)
{
    const ModuleResource* package = ModuleResources::find(resourceName);
    IThemeManager* themes = GetThemeManager();
    const std::string name(themeName);
    // The module needs its theme whole: the skin is read now, not when a form is first opened.
    ITheme* theme = package && themes && themes->loadTheme(name.c_str(), package->data, package->size) == kResultOk
                        ? themes->getTheme(name.c_str())
                        : nullptr;
    if (!theme || theme->checkSkin() != kResultOk)
    {
        std::fputs("ModuleComponent::loadTheme failed\n", stderr);
        return false;
    }
    return true;
}

} // namespace KVX
