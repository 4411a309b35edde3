#pragma once

#include "framework/interfaces/IThemeManager.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace KVX::Gui {

/// One element of a theme's forms or shapes. Elements live inside their theme and share its
/// reference count: retaining one retains the theme, so an element never outlives the texts it
/// hands out.
class ThemeElement final : public IThemeElement
{
public:
    /// `owner` is the theme that holds the element; it is not retained here.
    ThemeElement(IUnknown& owner, std::string type) : owner_(owner), type_(std::move(type)) {}
    ThemeElement(const ThemeElement&) = delete;
    ThemeElement& operator=(const ThemeElement&) = delete;
    ~ThemeElement() = default;

    tresult queryInterface(const UID& iid, void** object) override;
    uint32 retain() override { return owner_.retain(); }
    uint32 release() override { return owner_.release(); }

    const char* getType() override { return type_.c_str(); }
    const char* getAttribute(const char* name) override;
    uint32 countAttributes() override { return static_cast<uint32>(attributes_.size()); }
    const char* getAttributeName(uint32 index) override;
    const char* getAttributeValue(uint32 index) override;
    uint32 countChildren() override { return static_cast<uint32>(children_.size()); }
    IThemeElement* getChild(uint32 index) override;
    const char* getController() override { return controller_.c_str(); }
    tresult getBinding(BindingRecord& binding) override;

    const std::string& type() const { return type_; }
    /// The attribute's value, or null.
    const std::string* attribute(std::string_view name) const;
    void addAttribute(std::string name, std::string value);
    ThemeElement& addChild(std::string type);
    const std::vector<std::unique_ptr<ThemeElement>>& children() const { return children_; }

    void setController(std::string controller) { controller_ = std::move(controller); }
    /// Binds the element; `name` is one of its attribute values.
    void setBinding(BindingRecord::Kind kind, std::string name)
    {
        bindingKind_ = kind;
        bindingName_ = std::move(name);
    }

private:
    IUnknown& owner_;
    std::string type_;
    std::vector<std::pair<std::string, std::string>> attributes_;
    std::vector<std::unique_ptr<ThemeElement>> children_;
    std::string controller_;
    uint32 bindingKind_ = 0;
    std::string bindingName_;
};

} // namespace KVX::Gui
