#pragma once

#include "framework/component/Component.h"

namespace KVX {

/// The root of a module's component tree, named "Module", with the module's identifier, vendor
/// and title.
class ModuleComponent : public Component
{
    KVX_DECLARE_CLASS(ModuleComponent, Component)
public:
    ModuleComponent(std::string_view moduleId, std::string_view vendor, std::string_view title)
        : Component("Module"), moduleId_(moduleId), vendor_(vendor), title_(title)
    {
    }

    const CString& moduleId() const { return moduleId_; }
    const CString& vendor() const { return vendor_; }
    const CString& title() const { return title_; }

    /// Loads the theme package that the module carries as the resource `resourceName` into the
    /// host's theme manager under `themeName`, and has its skin read at once. On failure (a
    /// package that does not load, a skin that is not whole) writes the debug message
    /// "ModuleComponent::loadTheme failed" and returns false.
    bool loadTheme(std::string_view themeName, std::string_view resourceName);

    /// Answers "moduleId", "vendor" and "title" besides the base's properties.
    bool getProperty(Variant& value, std::string_view name) const override;

private:
    CString moduleId_;
    CString vendor_;
    CString title_;
};

} // namespace KVX
