#pragma once

// Walking a theme's forms for the names they bind to, as "kind controller.name":
// "parameter Credentials.username", "property .loginPhase", "object .trackList".

#include "framework/interfaces/IThemeManager.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace ThemeTests {

/// One binding as "kind controller.name": "parameter Credentials.username", "property .loginPhase".
using Binding = std::string;
using Bindings = std::multiset<Binding>;

inline std::string kindName(KVX::uint32 kind)
{
    switch (kind)
    {
    case KVX::BindingRecord::kParameter:
        return "parameter";
    case KVX::BindingRecord::kProperty:
        return "property";
    case KVX::BindingRecord::kObject:
        return "object";
    case KVX::BindingRecord::kForm:
        return "form";
    }
    return "unknown";
}

inline std::string join(const std::string& scope, const char* controller)
{
    if (scope.empty())
        return controller;
    return *controller ? scope + "/" + controller : scope;
}

/// The bindings of one form, without opening the forms it shows.
inline void collect(KVX::IThemeElement& element, Bindings& bindings)
{
    KVX::BindingRecord binding{};
    if (element.getBinding(binding) == KVX::kResultOk)
        bindings.insert(kindName(binding.kind) + " " + binding.controller + "." + binding.name);
    for (KVX::uint32 i = 0; i < element.countChildren(); ++i)
        collect(*element.getChild(i), bindings);
}

inline Bindings bindingsOf(KVX::ITheme& theme, const char* form)
{
    Bindings bindings;
    KVX::IThemeElement* root = theme.getForm(form);
    EXPECT_NE(root, nullptr) << form;
    if (root)
        collect(*root, bindings);
    return bindings;
}

/// The bindings reached from a form opened on a component, with the forms it shows opened in
/// turn; controllers are paths from that component.
inline void resolve(KVX::ITheme& theme, KVX::IThemeElement& element, const std::string& scope, std::set<Binding>& bindings, int depth)
{
    ASSERT_LT(depth, 32) << "forms open each other in a circle";
    KVX::BindingRecord binding{};
    if (element.getBinding(binding) == KVX::kResultOk)
    {
        const std::string controller = join(scope, binding.controller);
        if (binding.kind == KVX::BindingRecord::kForm)
        {
            KVX::IThemeElement* form = theme.getForm(binding.name);
            ASSERT_NE(form, nullptr) << binding.name;
            resolve(theme, *form, controller, bindings, depth + 1);
        }
        else
            bindings.insert(kindName(binding.kind) + " " + controller + "." + binding.name);
    }
    for (KVX::uint32 i = 0; i < element.countChildren(); ++i)
        resolve(theme, *element.getChild(i), scope, bindings, depth);
}

} // namespace ThemeTests
