#include "platform/kvxgui/ThemeElement.h"

#include <string_view>

namespace KVX::Gui {

tresult ThemeElement::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IThemeElement)
    KVX_QUERY_INTERFACE(iid, object, IUnknown)
    *object = nullptr;
    return kInvalidArgument;
}

const std::string* ThemeElement::attribute(std::string_view name) const
{
    for (const auto& [key, value] : attributes_)
        if (key == name)
            return &value;
    return nullptr;
}

const char* ThemeElement::getAttribute(const char* name)
{
    if (!name)
        return nullptr;
    const std::string* value = attribute(name);
    return value ? value->c_str() : nullptr;
}

const char* ThemeElement::getAttributeName(uint32 index)
{
    return index < attributes_.size() ? attributes_[index].first.c_str() : nullptr;
}

const char* ThemeElement::getAttributeValue(uint32 index)
{
    return index < attributes_.size() ? attributes_[index].second.c_str() : nullptr;
}

IThemeElement* ThemeElement::getChild(uint32 index)
{
    return index < children_.size() ? children_[index].get() : nullptr;
}

tresult ThemeElement::getBinding(BindingRecord& binding)
{
    if (bindingKind_ == 0)
        return kInvalidArgument;
    binding.kind = bindingKind_;
    binding.controller = controller_.c_str();
    binding.name = bindingName_.c_str();
    return kResultOk;
}

void ThemeElement::addAttribute(std::string name, std::string value)
{
    attributes_.emplace_back(std::move(name), std::move(value));
}

ThemeElement& ThemeElement::addChild(std::string type)
{
    children_.push_back(std::make_unique<ThemeElement>(owner_, std::move(type)));
    return *children_.back();
}

} // namespace KVX::Gui
