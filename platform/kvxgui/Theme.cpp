#include "platform/kvxgui/Theme.h"

#include "platform/kvxgui/ThemeColor.h"

#include <pugixml.hpp>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <unordered_set>

namespace KVX::Gui {

KVX_DEFINE_CLASS(Theme, Object, "Theme")

tresult Theme::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ITheme)
    return Object::queryInterface(iid, object);
}

namespace {

constexpr std::string_view kSkinFile = "skin.xml";
// Forms nest a few levels deep; the limit only keeps a hostile skin from exhausting the stack.
constexpr uint32 kMaxElementDepth = 64;
constexpr uint32 kMaxFrames = 4096;

bool isEqual(const char* a, std::string_view b)
{
    return a && b == a;
}

bool parseNumber(std::string_view text, double& value)
{
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end;
}

bool parseCount(std::string_view text, uint32& value)
{
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end && !text.empty();
}

std::vector<std::string> splitWords(std::string_view text)
{
    std::vector<std::string> words;
    size_t i = 0;
    while (i < text.size())
    {
        while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r'))
            ++i;
        const size_t start = i;
        while (i < text.size() && text[i] != ' ' && text[i] != '\t' && text[i] != '\n' && text[i] != '\r')
            ++i;
        if (i > start)
            words.emplace_back(text.substr(start, i - start));
    }
    return words;
}

// "h: a b c" (side by side), "v: a b c" or "a b c" (stacked), or a count instead of names.
bool parseFrames(std::string_view text, ThemeImage& image)
{
    std::vector<std::string> words = splitWords(text);
    if (!words.empty() && (words.front() == "h:" || words.front() == "v:"))
    {
        image.vertical = words.front() == "v:";
        words.erase(words.begin());
    }
    if (words.empty())
        return true;
    uint32 count = 0;
    if (words.size() == 1 && parseCount(words.front(), count))
    {
        image.frameCount = count;
        return count >= 1 && count <= kMaxFrames;
    }
    if (words.size() > kMaxFrames)
        return false;
    std::unordered_set<std::string> seen;
    for (const std::string& word : words)
        if (!seen.insert(word).second)
            return false;
    image.frames = words;
    image.frameCount = static_cast<uint32>(words.size());
    std::string names;
    for (const std::string& word : words)
        names += (names.empty() ? "" : " ") + word;
    image.frameNames = names;
    return true;
}

bool parseFont(const pugi::xml_node& node, FontRecord& font)
{
    const std::string_view face = node.attribute("face").as_string();
    if (face.empty() || face.size() >= sizeof(font.face))
        return false;
    std::memset(font.face, 0, sizeof(font.face));
    std::memcpy(font.face, face.data(), face.size());
    if (!parseNumber(node.attribute("size").as_string(), font.size) || !(font.size > 0))
        return false;
    font.style = FontRecord::kNormal;
    for (const std::string& word : splitWords(node.attribute("style").as_string()))
    {
        if (word == "bold")
            font.style |= FontRecord::kBold;
        else if (word == "italic")
            font.style |= FontRecord::kItalic;
        else if (word != "normal")
            return false;
    }
    return true;
}

// A controller path is child names joined with "/": none of them empty.
bool isControllerPath(std::string_view path)
{
    if (path.empty())
        return false;
    size_t start = 0;
    while (true)
    {
        const size_t slash = path.find('/', start);
        if (slash == start || start == path.size())
            return false;
        if (slash == std::string_view::npos)
            return true;
        start = slash + 1;
    }
}

// PNG signature and the IHDR chunk that must follow it.
bool readPngSize(std::span<const uint8> png, uint32& width, uint32& height)
{
    static constexpr uint8 kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (png.size() < 33 || std::memcmp(png.data(), kSignature, sizeof(kSignature)) != 0 ||
        std::memcmp(png.data() + 12, "IHDR", 4) != 0)
        return false;
    auto bigEndian = [&](size_t at) {
        return uint32(png[at]) << 24 | uint32(png[at + 1]) << 16 | uint32(png[at + 2]) << 8 | uint32(png[at + 3]);
    };
    width = bigEndian(16);
    height = bigEndian(20);
    return width > 0 && height > 0;
}

} // namespace

Ref<Theme> Theme::create(std::span<const uint8> bytes)
{
    auto theme = makeRef<Theme>();
    if (!theme->load(bytes))
        return nullptr;
    return theme;
}

bool Theme::load(std::span<const uint8> bytes)
{
    if (!reader_.open(bytes))
        return false;
    const std::vector<PackageEntry>& entries = reader_.entries();
    uint64 total = 0;
    for (const PackageEntry& entry : entries)
        if (!entry.folder)
        {
            total += entry.originalSize;
            if (total > kMaxInflatedSize)
                return false;
        }
    inflated_.resize(static_cast<size_t>(total));
    fileBytes_.assign(entries.size(), {});
    size_t offset = 0;
    for (size_t i = 0; i < entries.size(); ++i)
    {
        if (entries[i].folder)
            continue;
        const std::span<uint8> out(inflated_.data() + offset, static_cast<size_t>(entries[i].originalSize));
        if (!reader_.extract(entries[i], out))
            return false;
        fileBytes_[i] = out;
        offset += out.size();
    }
    const PackageEntry* skin = reader_.find(kSkinFile);
    return skin && !skin->folder;
}

bool Theme::readSkin()
{
    if (skin_ != SkinState::kUnread)
        return skin_ == SkinState::kWhole;
    skin_ = SkinState::kBroken;
    std::span<const uint8> skin;
    if (!file(kSkinFile, skin))
        return false;
    pugi::xml_document document;
    bool whole = document.load_buffer(skin.data(), skin.size(), pugi::parse_default, pugi::encoding_utf8) &&
                 std::string_view(document.document_element().name()) == "Skin";
    if (whole)
        for (const pugi::xml_node& section : document.document_element().children())
        {
            if (section.type() != pugi::node_element)
                continue;
            const std::string_view name = section.name();
            if (name == "Resources")
                whole = readResources(section);
            else if (name == "Styles")
                whole = readStyles(section);
            else if (name == "Forms")
                whole = readForms(section);
            else
                whole = false;
            if (!whole)
                break;
        }
    if (!whole || !checkReferences())
    {
        forgetSkin();
        return false;
    }
    skin_ = SkinState::kWhole;
    return true;
}

void Theme::forgetSkin()
{
    colors_.clear();
    styles_.clear();
    images_.clear();
    forms_.clear();
    shapes_.clear();
}

tresult Theme::checkSkin()
{
    return readSkin() ? kResultOk : kInvalidArgument;
}

bool Theme::readResources(const pugi::xml_node& resources)
{
    for (const pugi::xml_node& node : resources.children())
    {
        if (node.type() != pugi::node_element)
            continue;
        const std::string_view kind = node.name();
        const std::string name = node.attribute("name").as_string();
        if (name.empty())
            return false;
        if (kind == "Image")
        {
            ThemeImage image;
            image.file = node.attribute("url").as_string();
            if (image.file.empty() || !parseFrames(node.attribute("frames").as_string(), image))
                return false;
            if (const pugi::xml_attribute duration = node.attribute("duration"))
                if (!parseCount(duration.as_string(), image.duration))
                    return false;
            if (!images_.emplace(name, std::move(image)).second)
                return false;
        }
        else if (kind == "Color")
        {
            uint32 rgba = 0;
            if (!ThemeColor::parse(node.attribute("color").as_string(), rgba) || !colors_.emplace(name, rgba).second)
                return false;
        }
        else if (kind == "Shape")
        {
            auto shape = std::make_unique<ThemeElement>(static_cast<ITheme&>(*this), "Shape");
            if (!readElement(node, *shape, std::string(), false, 0) || !shapes_.emplace(name, std::move(shape)).second)
                return false;
        }
        else
            return false;
    }
    return true;
}

bool Theme::resolveColor(std::string_view text, uint32& rgba) const
{
    if (!text.empty() && text.front() == '#')
        return ThemeColor::parseDigits(text.substr(1), rgba);
    if (const auto found = colors_.find(std::string(text)); found != colors_.end())
    {
        rgba = found->second;
        return true;
    }
    return ThemeColor::parseName(text, rgba) || ThemeColor::parseDigits(text, rgba);
}

bool Theme::readStyles(const pugi::xml_node& styles)
{
    for (const pugi::xml_node& node : styles.children())
    {
        if (node.type() != pugi::node_element)
            continue;
        const std::string name = node.attribute("name").as_string();
        if (std::string_view(node.name()) != "Style" || name.empty())
            return false;
        ThemeStyle style;
        style.inherit = node.attribute("inherit").as_string();
        for (const pugi::xml_node& setting : node.children())
        {
            if (setting.type() != pugi::node_element)
                continue;
            const std::string_view kind = setting.name();
            const std::string key = setting.attribute("name").as_string();
            if (key.empty())
                return false;
            bool fresh = false;
            if (kind == "Color")
            {
                uint32 rgba = 0;
                if (!resolveColor(setting.attribute("color").as_string(), rgba))
                    return false;
                fresh = style.colors.emplace(key, rgba).second;
            }
            else if (kind == "Metric")
            {
                double value = 0;
                if (!parseNumber(setting.attribute("value").as_string(), value))
                    return false;
                fresh = style.metrics.emplace(key, value).second;
            }
            else if (kind == "Font")
            {
                FontRecord font{};
                if (!parseFont(setting, font))
                    return false;
                fresh = style.fonts.emplace(key, font).second;
            }
            if (!fresh)
                return false;
        }
        if (!styles_.emplace(name, std::move(style)).second)
            return false;
    }
    return true;
}

bool Theme::readForms(const pugi::xml_node& forms)
{
    for (const pugi::xml_node& node : forms.children())
    {
        if (node.type() != pugi::node_element)
            continue;
        const std::string name = node.attribute("name").as_string();
        if (std::string_view(node.name()) != "Form" || name.empty() || forms_.count(name))
            return false;
        auto form = std::make_unique<ThemeElement>(static_cast<ITheme&>(*this), "Form");
        if (!readElement(node, *form, std::string(), true, 0))
            return false;
        forms_.emplace(name, std::move(form));
    }
    return true;
}

bool Theme::readElement(const pugi::xml_node& node, ThemeElement& element, const std::string& scope, bool bind,
                        uint32 depth)
{
    if (depth >= kMaxElementDepth)
        return false;
    for (const pugi::xml_attribute& attribute : node.attributes())
        element.addAttribute(attribute.name(), attribute.value());

    std::string controller = scope;
    if (const std::string* path = element.attribute("controller"))
    {
        if (!isControllerPath(*path))
            return false;
        controller = scope.empty() ? *path : scope + "/" + *path;
    }
    element.setController(controller);

    if (bind)
    {
        // One binding per element: the property it shows, the form it opens, the object it
        // presents, or the parameter it edits. Forms themselves bind nothing.
        const std::string* property = element.attribute("property");
        const std::string* name = element.attribute("name");
        const std::string& type = element.type();
        if (property)
        {
            if (name || property->empty())
                return false;
            element.setBinding(BindingRecord::kProperty, *property);
        }
        else if (type == "View")
        {
            const std::string* form = element.attribute("form");
            if (!form || name)
                return false;
            element.setBinding(BindingRecord::kForm, *form);
        }
        else if (name && type == "ListView")
            element.setBinding(BindingRecord::kObject, *name);
        else if (name && depth > 0)
            element.setBinding(BindingRecord::kParameter, *name);
        if (type == "Form" && depth > 0)
            return false;
    }

    for (const pugi::xml_node& child : node.children())
    {
        if (child.type() != pugi::node_element)
            continue;
        if (!readElement(child, element.addChild(child.name()), controller, bind, depth + 1))
            return false;
    }
    return true;
}

std::vector<const ThemeStyle*> Theme::styleChain(const char* style) const
{
    std::vector<const ThemeStyle*> chain;
    std::string name = style ? style : "";
    while (!name.empty())
    {
        const auto found = styles_.find(name);
        // Cycles were refused when the theme was loaded; the bound is only a second guard.
        if (found == styles_.end() || chain.size() > styles_.size())
            break;
        chain.push_back(&found->second);
        name = found->second.inherit;
    }
    return chain;
}

bool Theme::checkReferences() const
{
    for (const auto& [name, style] : styles_)
    {
        std::unordered_set<std::string> seen{name};
        for (std::string parent = style.inherit; !parent.empty();)
        {
            const auto found = styles_.find(parent);
            if (found == styles_.end() || !seen.insert(parent).second)
                return false;
            parent = found->second.inherit;
        }
    }
    for (const auto& [name, image] : images_)
    {
        const PackageEntry* entry = reader_.find(image.file);
        if (!entry || entry->folder)
            return false;
    }
    for (const auto& [name, form] : forms_)
        if (!checkElement(*form))
            return false;
    for (const auto& [name, shape] : shapes_)
        if (!checkElement(*shape))
            return false;
    return true;
}

bool Theme::checkElement(const ThemeElement& element) const
{
    for (const char* styleAttribute : {"style", "headerStyle"})
        if (const std::string* style = element.attribute(styleAttribute); style && !styles_.count(*style))
            return false;
    for (const char* colourAttribute : {"fill", "stroke"})
    {
        uint32 rgba = 0;
        if (const std::string* colour = element.attribute(colourAttribute); colour && !resolveColor(*colour, rgba))
            return false;
    }
    if (const std::string* shape = element.attribute("shape"); shape && !shapes_.count(*shape))
        return false;
    if (element.type() == "View")
        if (const std::string* form = element.attribute("form"); !form || !forms_.count(*form))
            return false;
    for (const char* imageAttribute : {"image", "icon"})
    {
        const std::string* imageName = element.attribute(imageAttribute);
        if (!imageName)
            continue;
        const auto image = images_.find(*imageName);
        if (image == images_.end())
            return false;
        if (const std::string* frame = element.attribute("frame"); frame && std::string_view(imageAttribute) == "image")
        {
            const auto& frames = image->second.frames;
            if (std::find(frames.begin(), frames.end(), *frame) == frames.end())
                return false;
        }
    }
    for (const auto& child : element.children())
        if (!checkElement(*child))
            return false;
    return true;
}

bool Theme::file(std::string_view path, std::span<const uint8>& bytes) const
{
    const PackageEntry* entry = reader_.find(path);
    if (!entry || entry->folder)
        return false;
    bytes = fileBytes_[static_cast<size_t>(entry - reader_.entries().data())];
    return true;
}

template <class Value>
tresult Theme::lookUp(const char* style, const char* name, std::unordered_map<std::string, Value> ThemeStyle::*settings,
                      Value& value) const
{
    if (!name)
        return kInvalidArgument;
    for (const ThemeStyle* link : styleChain(style))
    {
        const auto& table = link->*settings;
        if (const auto found = table.find(name); found != table.end())
        {
            value = found->second;
            return kResultOk;
        }
    }
    return kInvalidArgument;
}

tresult Theme::getColor(const char* style, const char* name, uint32& rgba)
{
    if (!readSkin())
        return kInvalidArgument;
    if (name && (!style || !*style))
    {
        const auto found = colors_.find(name);
        if (found == colors_.end())
            return kInvalidArgument;
        rgba = found->second;
        return kResultOk;
    }
    return lookUp(style, name, &ThemeStyle::colors, rgba);
}

tresult Theme::getMetric(const char* style, const char* name, double& value)
{
    if (!readSkin())
        return kInvalidArgument;
    return lookUp(style, name, &ThemeStyle::metrics, value);
}

tresult Theme::getFont(const char* style, const char* name, FontRecord& font)
{
    if (!readSkin())
        return kInvalidArgument;
    return lookUp(style, name, &ThemeStyle::fonts, font);
}

tresult Theme::getImage(const char* name, ImageRecord& record)
{
    if (!readSkin())
        return kInvalidArgument;
    const auto found = name ? images_.find(name) : images_.end();
    if (found == images_.end())
        return kInvalidArgument;
    ThemeImage& image = found->second;
    if (!image.measured)
    {
        std::span<const uint8> png;
        if (!file(image.file, png) || !readPngSize(png, image.width, image.height))
            return kUnexpected;
        image.measured = true;
    }
    record.file = image.file.c_str();
    record.frameNames = image.frameNames.c_str();
    record.width = image.width;
    record.height = image.height;
    record.frameCount = image.frameCount;
    record.vertical = image.vertical ? 1 : 0;
    record.duration = image.duration;
    return kResultOk;
}

tresult Theme::findImageFrame(const char* name, const char* frame, uint32& index)
{
    if (!readSkin())
        return kInvalidArgument;
    const auto found = name ? images_.find(name) : images_.end();
    if (found == images_.end() || !frame)
        return kInvalidArgument;
    const auto& frames = found->second.frames;
    for (size_t i = 0; i < frames.size(); ++i)
        if (isEqual(frame, frames[i]))
        {
            index = static_cast<uint32>(i);
            return kResultOk;
        }
    return kInvalidArgument;
}

tresult Theme::getFile(const char* path, const void*& data, uint64& size)
{
    std::span<const uint8> bytes;
    if (!path || !file(path, bytes))
        return kInvalidArgument;
    data = bytes.data();
    size = bytes.size();
    return kResultOk;
}

IThemeElement* Theme::getForm(const char* name)
{
    if (!readSkin())
        return nullptr;
    const auto found = name ? forms_.find(name) : forms_.end();
    return found == forms_.end() ? nullptr : found->second.get();
}

IThemeElement* Theme::getShape(const char* name)
{
    if (!readSkin())
        return nullptr;
    const auto found = name ? shapes_.find(name) : shapes_.end();
    return found == shapes_.end() ? nullptr : found->second.get();
}

uint32 Theme::countForms()
{
    return readSkin() ? static_cast<uint32>(forms_.size()) : 0;
}

const char* Theme::getFormName(uint32 index)
{
    if (!readSkin())
        return nullptr;
    if (index >= forms_.size())
        return nullptr;
    return std::next(forms_.begin(), index)->first.c_str();
}

} // namespace KVX::Gui
