#pragma once

#include "framework/interfaces/IThemeManager.h"

#include <map>
#include <string>
#include <vector>

namespace Host {

/// What one element of the page binds to, by the key the page and the host share:
/// "<controller>:<name>", the controller being the component path from the gadget ("" for the
/// gadget itself, "Credentials", "Client").
struct PageBinding
{
    enum Kind
    {
        kParameter, ///< a parameter the element shows or edits
        kProperty,  ///< a property it follows (variants, busy indicators)
        kList,      ///< an item model the component publishes (the track table)
    };
    Kind kind = kParameter;
    std::string controller;
    std::string name;
    std::string element; ///< the theme element's type ("EditBox", "SelectBox", ...)
    bool secret = false;  ///< a password field: its value never leaves the host
    std::string style, headerStyle; ///< a list's theme styles

    static std::string keyOf(const std::string& controller, const std::string& name) { return controller + ":" + name; }
    std::string key() const { return keyOf(controller, name); }
};

/// The gadget's page, generated from the theme's forms: every element becomes an HTML element
/// that says by data attributes what it binds, the theme's styles become CSS classes, its
/// images are served by name. The page's script (page.js) knows element kinds, never forms.
struct GadgetPage
{
    std::string html;
    std::map<std::string, PageBinding> bindings; ///< by key
    std::vector<std::string> images;             ///< the theme images the page shows
    std::string themeCss;                        ///< the theme's styles and images as CSS classes

    /// Builds the page that shows `forms` (names of the theme's forms, each opened on the
    /// gadget) side by side; the last is the gadget's window, which an activation brings to the
    /// front. Forms, views and styles the theme lacks are left out.
    static GadgetPage build(KVX::ITheme& theme, const std::vector<std::string>& forms, const std::string& title);
};

/// `text` with the five characters that matter in HTML text and attributes escaped.
std::string escapeHtml(const std::string& text);

} // namespace Host
