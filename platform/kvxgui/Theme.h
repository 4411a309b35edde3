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

/// ITheme: one theme package. Loading reads the directory and inflates every file, checking each
/// against its recorded size, and keeps the inflated files (not the package). "skin.xml" is read
/// into styles, images, colours, shapes and forms when first needed (checkSkin, or the first
/// request for any of them). User-interface thread.
class Theme : public Object, public ITheme
{
    KVX_DECLARE_CLASS(Theme, Object)
public:
    /// Reads the package in `bytes` and inflates its files; `bytes` are not needed afterwards.
    /// Null when the package is refused, a file does not inflate to its recorded size, or there
    /// is no "skin.xml".
    static Ref<Theme> create(std::span<const uint8> bytes);

    /// The most that a theme's files may inflate to together.
    static constexpr uint64 kMaxInflatedSize = uint64(32) * 1024 * 1024;

    tresult getColor(const char* style, const char* name, uint32& rgba) override;
    tresult getMetric(const char* style, const char* name, double& value) override;
    tresult getFont(const char* style, const char* name, FontRecord& font) override;
    tresult getImage(const char* name, ImageRecord& image) override;
    tresult findImageFrame(const char* name, const char* frame, uint32& index) override;
    tresult getFile(const char* path, const void*& data, uint64& size) override;
    IThemeElement* getForm(const char* name) override;
    IThemeElement* getShape(const char* name) override;
    uint32 countForms() override;
    const char* getFormName(uint32 index) override;
    tresult checkSkin() override;
    KVX_FORWARD_UNKNOWN(Object)

    Theme() = default;

private:
    bool load(std::span<const uint8> bytes);
    /// Reads "skin.xml" once; true when it is whole. A skin that is not leaves the theme without
    /// styles, images, colours, shapes and forms.
    bool readSkin();
    void forgetSkin();
    bool readResources(const pugi::xml_node& resources);
    bool readStyles(const pugi::xml_node& styles);
    bool readForms(const pugi::xml_node& forms);
    bool readElement(const pugi::xml_node& node, ThemeElement& element, const std::string& scope, bool bind,
                     uint32 depth);
    bool checkReferences() const;
    bool checkElement(const ThemeElement& element) const;
    bool resolveColor(std::string_view text, uint32& rgba) const;
    /// The inflated bytes of the file at `path`; false when there is no such file.
    bool file(std::string_view path, std::span<const uint8>& bytes) const;
    /// The style and the styles it inherits from, nearest first; empty for an unknown style.
    std::vector<const ThemeStyle*> styleChain(const char* style) const;
    /// The setting `name` from the nearest style of the chain that has it.
    template <class Value>
    tresult lookUp(const char* style, const char* name, std::unordered_map<std::string, Value> ThemeStyle::*settings,
                   Value& value) const;

    enum class SkinState
    {
        kUnread,
        kWhole,
        kBroken,
    };

    /// The directory (its bytes are no longer looked at after load), and every file inflated into
    /// one buffer, in directory order: fileBytes_[i] belongs to reader_.entries()[i].
    PackageReader reader_;
    std::vector<uint8> inflated_;
    std::vector<std::span<const uint8>> fileBytes_;
    SkinState skin_ = SkinState::kUnread;
    std::unordered_map<std::string, uint32> colors_;
    std::unordered_map<std::string, ThemeStyle> styles_;
    std::unordered_map<std::string, ThemeImage> images_;
    std::map<std::string, std::unique_ptr<ThemeElement>> forms_;
    std::unordered_map<std::string, std::unique_ptr<ThemeElement>> shapes_;
};

} // namespace KVX::Gui
