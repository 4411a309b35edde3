#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IThemeManager.h"
#include "framework/package/PackageReader.h"
#include "platform/kvxgui/ThemeElement.h"
#include "platform/kvxgui/ThemeImage.h"
#include "platform/kvxgui/ThemeStyle.h"

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pugi {
class xml_node;
}

namespace KVX::Gui {

/// ITheme: one theme package, with its "skin.xml" read into styles, images, colours, shapes and
/// forms. The package's other files are inflated when first asked for. User-interface thread.
class Theme : public Object, public ITheme
{
    KVX_DECLARE_CLASS(Theme, Object)
public:
    /// Copies the package in `bytes` and reads it. Null when the package is refused, has no
    /// readable "skin.xml", or the skin is malformed or names what it does not declare (a
    /// style, image, frame, form or file).
    static Ref<Theme> create(std::span<const uint8> bytes);

    tresult getColor(const char* style, const char* name, uint32& rgba) override;
    tresult getMetric(const char* style, const char* name, double& value) override;
    tresult getFont(const char* style, const char* name, FontRecord& font) override;
    tresult getImage(const char* name, ImageRecord& image) override;
    tresult findImageFrame(const char* name, const char* frame, uint32& index) override;
    tresult getFile(const char* path, const void*& data, uint64& size) override;
    IThemeElement* getForm(const char* name) override;
    IThemeElement* getShape(const char* name) override;
    uint32 countForms() override { return static_cast<uint32>(forms_.size()); }
    const char* getFormName(uint32 index) override;
    KVX_FORWARD_UNKNOWN(Object)

    Theme() = default;

private:
    bool load(std::span<const uint8> bytes);
    bool readResources(const pugi::xml_node& resources);
    bool readStyles(const pugi::xml_node& styles);
    bool readForms(const pugi::xml_node& forms);
    bool readElement(const pugi::xml_node& node, ThemeElement& element, const std::string& scope, bool bind,
                     uint32 depth);
    bool checkReferences() const;
    bool checkElement(const ThemeElement& element) const;
    bool resolveColor(std::string_view text, uint32& rgba) const;
    const std::vector<uint8>* file(std::string_view path);
    /// The style and the styles it inherits from, nearest first; empty for an unknown style.
    std::vector<const ThemeStyle*> styleChain(const char* style) const;
    /// The setting `name` from the nearest style of the chain that has it.
    template <class Value>
    tresult lookUp(const char* style, const char* name, std::unordered_map<std::string, Value> ThemeStyle::*settings,
                   Value& value) const;

    std::vector<uint8> package_;
    PackageReader reader_;
    std::unordered_map<std::string, std::vector<uint8>> files_;
    std::unordered_map<std::string, uint32> colors_;
    std::unordered_map<std::string, ThemeStyle> styles_;
    std::unordered_map<std::string, ThemeImage> images_;
    std::map<std::string, std::unique_ptr<ThemeElement>> forms_;
    std::unordered_map<std::string, std::unique_ptr<ThemeElement>> shapes_;
};

} // namespace KVX::Gui
