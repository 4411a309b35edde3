#include "framework/plugin/ModuleComponent.h"

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

} // namespace KVX
