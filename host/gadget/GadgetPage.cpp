#include "host/gadget/GadgetPage.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

namespace Host {

using namespace KVX;

std::string escapeHtml(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (char c : text)
        switch (c)
        {
        case '&': result += "&amp;"; break;
        case '<': result += "&lt;"; break;
        case '>': result += "&gt;"; break;
        case '"': result += "&quot;"; break;
        case '\'': result += "&#39;"; break;
        default: result += c;
        }
    return result;
}

namespace {

/// Forms open views of other forms; a theme whose views open each other in a circle ends here.
constexpr int kMaxViewDepth = 12;

std::string cssColor(uint32 rgba)
{
    char text[16];
    std::snprintf(text, sizeof text, "#%08x", unsigned(rgba));
    return text;
}

std::string cssFont(const FontRecord& font)
{
    std::string face(font.face, strnlen(font.face, sizeof font.face));
    for (char& c : face)
        if (c == '"' || c == '\\' || c == '<' || c == ';' || c == '}')
            c = ' ';
    const double size = font.size > 0 && font.size < 200 ? font.size : 12;
    std::string css;
    if (font.style & FontRecord::kItalic)
        css += "italic ";
    if (font.style & FontRecord::kBold)
        css += "bold ";
    char number[32];
    std::snprintf(number, sizeof number, "%gpx ", size);
    return css + number + "\"" + face + "\", \"Liberation Sans\", sans-serif";
}

/// A number attribute as pixels, or empty when the element has none or it is not a number.
std::string pixels(IThemeElement& element, const char* name)
{
    const char* value = element.getAttribute(name);
    if (!value || !*value)
        return {};
    char* end = nullptr;
    const double number = std::strtod(value, &end);
    if (*end || !(number >= 0 && number < 100000))
        return {};
    return std::to_string(std::lround(number)) + "px";
}

/// Image names go into addresses and CSS; names of other characters are not shown.
bool isPlainName(const std::string& name)
{
    if (name.empty() || name.size() > 64)
        return false;
    for (char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '_' && c != '-')
            return false;
    return true;
}

std::string attributeOf(IThemeElement& element, const char* name)
{
    const char* value = element.getAttribute(name);
    return value ? value : "";
}

std::string classOfStyle(const std::string& style)
{
    std::string name = "s-";
    for (char c : style)
        name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

/// A name as words: "trackList" reads "Track list".
std::string wordsOf(const std::string& name)
{
    std::string words;
    for (char c : name)
    {
        const unsigned char letter = static_cast<unsigned char>(c);
        if (c == '_' || c == '-' || c == '.')
            words += ' ';
        else if (std::isupper(letter) && !words.empty() && words.back() != ' ')
            words += std::string(" ") + char(std::tolower(letter));
        else
            words += words.empty() ? char(std::toupper(letter)) : c;
    }
    return words;
}

/// What the keys do in a list, as its grid's description.
const char* const kGridKeys =
    "Arrow keys move between rows and cells and select the row; Control with an arrow moves without selecting. "
    "Space selects the row, Shift and Space the rows from the last one chosen, Control and Space adds or takes "
    "out the row. Enter edits the selected rows in the fields below. Delete removes the file of the selected rows. "
    "Control and X picks the selected rows up, Control and V drops them on the row in focus, Control, Shift and V "
    "after the last row; Escape puts them back.";

std::string joinPath(const std::string& base, const std::string& path)
{
    if (base.empty())
        return path;
    return path.empty() ? base : base + "/" + path;
}

class Builder
{
public:
    Builder(ITheme& theme, GadgetPage& page) : theme_(theme), page_(page) {}

    void form(const std::string& name, const std::string& base, int depth)
    {
        IThemeElement* form = theme_.getForm(name.c_str());
        if (!form || depth > kMaxViewDepth)
            return;
        // A window's width is where the page starts laying it out; a view fills its place.
        std::string style = boxStyle(*form, depth == 0 ? kWindow : kView);
        // A label outside a form names nothing inside it.
        const std::string outerLabel = std::exchange(labelledBy_, {});
        // A window paints its background colour; a form shown inside another lets it show through.
        html_ += std::string("<div class=\"form") + (depth == 0 ? " bg" : "") + styleClass(*form) + "\" data-form=\"" + escapeHtml(name) + "\"" +
                 styleAttribute(style) + ">";
        children(*form, base, depth);
        html_ += "</div>";
        labelledBy_ = outerLabel;
    }

    std::string takeHtml() { return std::move(html_); }

    std::string css()
    {
        std::string css;
        for (const std::string& style : styles_)
        {
            const std::string selector = "." + classOfStyle(style);
            uint32 rgba = 0;
            FontRecord font{};
            css += selector + "{";
            if (theme_.getColor(style.c_str(), "textcolor", rgba) == kResultOk)
                css += "color:" + cssColor(rgba) + ";";
            if (theme_.getFont(style.c_str(), "textfont", font) == kResultOk)
                css += "font:" + cssFont(font) + ";";
            css += "}\n";
            if (theme_.getColor(style.c_str(), "backcolor", rgba) == kResultOk)
                css += selector + ".bg{background-color:" + cssColor(rgba) + "}\n";
            if (theme_.getColor(style.c_str(), "linkcolor", rgba) == kResultOk)
                css += selector + " .link," + selector + ".link{color:" + cssColor(rgba) + "}\n";
            if (theme_.getColor(style.c_str(), "hilitecolor", rgba) == kResultOk)
                css += selector + ".link:hover{color:" + cssColor(rgba) + "}\n";
        }
        for (const std::string& name : images_)
        {
            ImageRecord image{};
            if (theme_.getImage(name.c_str(), image) != kResultOk)
                continue;
            css += ".i-" + classOfStyle(name).substr(2) + "{background-image:url(\"image/" + escapeHtml(name) + "\")}\n";
            if (image.duration > 0 && image.frameCount > 1)
            {
                // An animation steps through the frames, as the busy indicator turns.
                const std::string offset = std::to_string(image.vertical ? 0 : -int(image.width)) + "px " +
                                           std::to_string(image.vertical ? -int(image.height) : 0) + "px";
                css += "@keyframes a-" + classOfStyle(name).substr(2) + "{from{background-position:0 0}to{background-position:" +
                       offset + "}}\n";
                css += ".i-" + classOfStyle(name).substr(2) + ".animated{animation:a-" + classOfStyle(name).substr(2) + " " +
                       std::to_string(image.duration) + "ms steps(" + std::to_string(image.frameCount) + ") infinite}\n";
            }
        }
        return css;
    }

    const std::set<std::string>& images() const { return images_; }

private:
    void children(IThemeElement& element, const std::string& base, int depth)
    {
        const uint32 count = element.countChildren();
        for (uint32 i = 0; i < count; ++i)
        {
            IThemeElement* child = element.getChild(i);
            if (!child)
                continue;
            IThemeElement* next = i + 1 < count ? element.getChild(i + 1) : nullptr;
            if (next && std::strcmp(child->getType(), "Label") == 0 && isLabelled(*next))
            {
                // A label in front of a control names it; in front of a box, the controls in it.
                const std::string id = newId();
                if (isField(*next))
                {
                    controlId_ = newId();
                    html_ += "<label class=\"label" + styleClass(*child) + "\" id=\"" + id + "\" for=\"" + controlId_ +
                             "\">";
                }
                else
                    html_ += "<span class=\"label" + styleClass(*child) + "\" id=\"" + id + "\">";
                html_ += escapeHtml(attributeOf(*child, "title")) + (isField(*next) ? "</label>" : "</span>");
                const std::string outer = std::exchange(labelledBy_, id);
                this->element(*next, base, depth);
                labelledBy_ = outer;
                controlId_.clear();
                ++i;
                continue;
            }
            this->element(*child, base, depth);
        }
    }

    /// A field a label can name by itself.
    static bool isField(IThemeElement& element)
    {
        const std::string type = element.getType();
        return type == "EditBox" || type == "SelectBox";
    }

    /// Whether a label just before `element` names it (a field or a list) or the fields in it (a box).
    static bool isLabelled(IThemeElement& element)
    {
        const std::string type = element.getType();
        return isField(element) || type == "ListView" || type == "Vertical" || type == "Horizontal" ||
               type == "Variant";
    }

    std::string newId() { return "e" + std::to_string(++ids_); }

    /// The attributes that name a field: the id its label points to, or the label it points to.
    std::string naming()
    {
        if (!controlId_.empty())
            return " id=\"" + std::exchange(controlId_, {}) + "\"";
        return labelledBy_.empty() ? std::string() : " aria-labelledby=\"" + labelledBy_ + "\"";
    }

    /// Registers the element's binding and returns its data attribute (" data-p=..." for a
    /// parameter, " data-prop=..." for a property, " data-list=..." for a list), or "".
    std::string bind(IThemeElement& element, const std::string& base, bool secret = false)
    {
        BindingRecord record{};
        if (element.getBinding(record) != kResultOk || record.kind == BindingRecord::kForm)
            return {};
        PageBinding binding;
        binding.kind = record.kind == BindingRecord::kProperty ? PageBinding::kProperty
                       : record.kind == BindingRecord::kObject ? PageBinding::kList
                                                                : PageBinding::kParameter;
        binding.controller = joinPath(base, record.controller ? record.controller : "");
        binding.name = record.name ? record.name : "";
        binding.element = element.getType();
        binding.secret = secret;
        const std::string key = binding.key();
        auto [entry, added] = page_.bindings.emplace(key, binding);
        if (!added)
            entry->second.secret = entry->second.secret || secret;
        const char* attribute = binding.kind == PageBinding::kProperty ? " data-prop=\""
                                : binding.kind == PageBinding::kList   ? " data-list=\""
                                                                       : " data-p=\"";
        return attribute + escapeHtml(key) + "\"";
    }

    std::string styleClass(IThemeElement& element)
    {
        const std::string style = attributeOf(element, "style");
        if (style.empty())
            return {};
        styles_.insert(style);
        return " " + classOfStyle(style);
    }

    static std::string styleAttribute(const std::string& style)
    {
        return style.empty() ? std::string() : " style=\"" + escapeHtml(style) + "\"";
    }

    /// How an element's size from the theme becomes CSS. The page must reflow: a narrow or zoomed
    /// window shrinks what is wider than it (page.css limits widths to the space there is) and
    /// lets what holds text grow in height, so that nothing is cut off.
    enum Sizing
    {
        kWindow,  ///< a window: its width as --width, which page.css starts from
        kView,    ///< a form shown inside another: takes the size of the place it is shown in
        kBox,     ///< boxes and variants: their width, a height they may grow beyond
        kControl, ///< controls: their width and height
        kFill,    ///< a list: as wide as its box, its own height (it scrolls inside)
    };

    /// Size, margin, spacing, background image and shape of a box, as CSS.
    std::string boxStyle(IThemeElement& element, Sizing sizing)
    {
        std::string css;
        if (std::string width = pixels(element, "width"); !width.empty() && sizing != kView && sizing != kFill)
            css += (sizing == kWindow ? "--width:" : "width:") + width + ";";
        if (std::string height = pixels(element, "height"); !height.empty() && sizing != kView)
            css += (sizing == kControl || sizing == kFill ? "height:" : "min-height:") + height + ";";
        if (std::string margin = pixels(element, "margin"); !margin.empty())
            css += "padding:" + margin + ";";
        if (std::string spacing = pixels(element, "spacing"); !spacing.empty())
            css += "gap:" + spacing + ";";
        if (const std::string image = attributeOf(element, "image"); !image.empty())
            css += imageBackground(image, 0);
        if (const std::string shape = attributeOf(element, "shape"); !shape.empty())
            css += shapeStyle(shape);
        return css;
    }

    /// The image `name` stretched over the element, showing frame `frame` of it.
    std::string imageBackground(const std::string& name, uint32 frame)
    {
        ImageRecord image{};
        if (!isPlainName(name) || theme_.getImage(name.c_str(), image) != kResultOk)
            return {};
        images_.insert(name);
        const uint32 count = std::max<uint32>(image.frameCount, 1);
        const double at = count > 1 ? 100.0 * std::min(frame, count - 1) / (count - 1) : 0;
        char css[160];
        if (image.vertical)
            std::snprintf(css, sizeof css, "background-image:url('image/%s');background-size:100%% %u%%;background-position:0 %g%%;",
                          name.c_str(), count * 100, at);
        else
            std::snprintf(css, sizeof css, "background-image:url('image/%s');background-size:%u%% 100%%;background-position:%g%% 0;",
                          name.c_str(), count * 100, at);
        return css;
    }

    std::string colorValue(const std::string& value)
    {
        uint32 rgba = 0;
        if (theme_.getColor(nullptr, value.c_str(), rgba) == kResultOk)
            return cssColor(rgba);
        for (char c : value)
            if (!std::isalnum(static_cast<unsigned char>(c)) && c != '#')
                return "transparent";
        return value;
    }

    std::string shapeStyle(const std::string& name)
    {
        IThemeElement* shape = theme_.getShape(name.c_str());
        if (!shape)
            return {};
        std::string css;
        if (std::string radius = pixels(*shape, "radius"); !radius.empty())
            css += "border-radius:" + radius + ";";
        if (const std::string fill = attributeOf(*shape, "fill"); !fill.empty())
            css += "background-color:" + colorValue(fill) + ";";
        if (const std::string stroke = attributeOf(*shape, "stroke"); !stroke.empty())
        {
            std::string width = pixels(*shape, "strokeWidth");
            css += "border:" + (width.empty() ? std::string("1px") : width) + " solid " + colorValue(stroke) + ";";
        }
        return css;
    }

    /// One frame of image `name` at its own size.
    std::string imageElement(const std::string& name, const std::string& frameName, bool animated, const std::string& extra)
    {
        ImageRecord image{};
        if (!isPlainName(name) || theme_.getImage(name.c_str(), image) != kResultOk)
            return {};
        images_.insert(name);
        uint32 frame = 0;
        if (!frameName.empty())
            theme_.findImageFrame(name.c_str(), frameName.c_str(), frame);
        const uint32 count = std::max<uint32>(image.frameCount, 1);
        const uint32 width = image.vertical ? image.width : image.width / count;
        const uint32 height = image.vertical ? image.height / count : image.height;
        char style[128];
        std::snprintf(style, sizeof style, "width:%upx;height:%upx;background-position:-%upx -%upx", width, height,
                      image.vertical ? 0 : frame * width, image.vertical ? frame * height : 0);
        return "<span class=\"img i-" + classOfStyle(name).substr(2) + (animated ? " animated" : "") + "\"" + extra +
               " style=\"" + style + "\"></span>";
    }

    std::string icon(IThemeElement& element)
    {
        const std::string name = attributeOf(element, "icon");
        if (name.empty())
            return {};
        ImageRecord image{};
        if (!isPlainName(name) || theme_.getImage(name.c_str(), image) != kResultOk)
            return {};
        images_.insert(name);
        return "<img class=\"icon\" alt=\"\" src=\"image/" + escapeHtml(name) + "\">";
    }

    void element(IThemeElement& element, const std::string& base, int depth)
    {
        const std::string type = element.getType();
        const std::string title = escapeHtml(attributeOf(element, "title"));
        const std::string options = " " + attributeOf(element, "options") + " ";
        if (type == "Vertical" || type == "Horizontal")
        {
            html_ += "<div class=\"box " + std::string(type == "Vertical" ? "v" : "h") + styleClass(element) + "\"" +
                     styleAttribute(boxStyle(element, kBox)) + ">";
            children(element, base, depth);
            html_ += "</div>";
        }
        else if (type == "Space")
            html_ += "<div class=\"space\"></div>";
        else if (type == "View")
        {
            BindingRecord record{};
            if (element.getBinding(record) == kResultOk && record.kind == BindingRecord::kForm)
                form(record.name, joinPath(base, record.controller ? record.controller : ""), depth + 1);
        }
        else if (type == "Variant")
        {
            html_ += "<div class=\"variant" + styleClass(element) + "\"" + bind(element, base);
            if (const char* fallback = element.getAttribute("default"))
                html_ += " data-default=\"" + escapeHtml(fallback) + "\"";
            html_ += styleAttribute(boxStyle(element, kBox)) + ">";
            for (uint32 i = 0; i < element.countChildren(); ++i)
                if (IThemeElement* child = element.getChild(i))
                {
                    const char* match = child->getAttribute("case");
                    html_ += "<div class=\"case\"" + (match ? " data-case=\"" + escapeHtml(match) + "\"" : std::string()) +
                             " hidden>";
                    this->element(*child, base, depth);
                    html_ += "</div>";
                }
            html_ += "</div>";
        }
        else if (type == "Label")
            html_ += "<span class=\"label" + styleClass(element) + "\">" + title + "</span>";
        else if (type == "Text")
            html_ += "<span class=\"text" + std::string(options.find(" multiline ") != std::string::npos ? " multiline" : "") +
                     styleClass(element) + "\"" + bind(element, base) + "></span>";
        else if (type == "EditBox")
        {
            const bool secret = options.find(" password ") != std::string::npos;
            const std::string style = styleAttribute(boxStyle(element, kControl));
            if (options.find(" multiline ") != std::string::npos)
                html_ += "<textarea class=\"edit" + styleClass(element) + "\"" + naming() + bind(element, base) +
                         style + "></textarea>";
            else
                html_ += std::string("<input class=\"edit") + styleClass(element) + "\" type=\"" +
                         (secret ? "password" : "text") + "\" autocomplete=\"" + (secret ? "current-password" : "off") +
                         "\" spellcheck=\"false\"" + naming() + bind(element, base, secret) + style + ">";
        }
        else if (type == "CheckBox")
            html_ += "<label class=\"check" + styleClass(element) + "\"><input type=\"checkbox\"" + bind(element, base) +
                     "><span>" + title + "</span></label>";
        else if (type == "Button" || type == "DialogButton")
            html_ += "<button type=\"button\" class=\"button" +
                     std::string(element.getAttribute("image") ? "" : " flat") + styleClass(element) + "\"" +
                     bind(element, base) + styleAttribute(boxStyle(element, kControl)) + ">" + icon(element) +
                     "<span>" + title + "</span></button>";
        else if (type == "Link")
        {
            const std::string binding = bind(element, base);
            if (!binding.empty())
                html_ += "<button type=\"button\" class=\"link" + styleClass(element) + "\"" + binding + ">" + icon(element) +
                         "<span>" + title + "</span></button>";
            else
                html_ += "<a class=\"link" + styleClass(element) + "\" target=\"_blank\" rel=\"noopener noreferrer\" href=\"" +
                         escapeHtml(attributeOf(element, "url")) + "\">" + icon(element) + "<span>" + title + "</span></a>";
        }
        else if (type == "UrlLink")
        {
            html_ += "<a class=\"link urllink" + styleClass(element) + "\" target=\"_blank\" rel=\"noopener noreferrer\"" +
                     bind(element, base) + ">";
            children(element, base, depth);
            html_ += "</a>";
        }
        else if (type == "SelectBox")
            html_ += "<select class=\"select" + styleClass(element) + "\"" + naming() + bind(element, base) +
                     styleAttribute(boxStyle(element, kControl)) + "></select>";
        else if (type == "BusyIndicator")
            html_ += imageElement(attributeOf(element, "image"), {}, true, " data-busy" + bind(element, base));
        else if (type == "Image")
            html_ += imageElement(attributeOf(element, "image"), attributeOf(element, "frame"), false, "");
        else if (type == "ListView")
        {
            const std::string data = bind(element, base);
            BindingRecord record{};
            if (element.getBinding(record) == kResultOk)
            {
                PageBinding& binding = page_.bindings[PageBinding::keyOf(joinPath(base, record.controller), record.name)];
                binding.style = attributeOf(element, "style");
                binding.headerStyle = attributeOf(element, "headerStyle");
            }
            // The painting is for the eye; what a screen reader and the keyboard use is the grid
            // laid over it, cell on cell, which page.js fills from the same state. Files come in
            // by a button as well as by a drop.
            const std::string help = newId();
            const std::string name = labelledBy_.empty()
                                         ? " aria-label=\"" + escapeHtml(wordsOf(record.name ? record.name : "")) + "\""
                                         : " aria-labelledby=\"" + labelledBy_ + "\"";
            html_ +=
                "<div class=\"list\"" + data + styleAttribute(boxStyle(element, kFill)) + "><div class=\"surface\">";
            html_ += "<canvas aria-hidden=\"true\"></canvas>";
            html_ += "<div class=\"grid\" role=\"grid\" aria-multiselectable=\"true\"" + name + " aria-describedby=\"" +
                     help + "\">";
            html_ += "</div></div></div>";
            html_ += "<p id=\"" + help + "\" hidden>" + std::string(kGridKeys) + "</p>";
            html_ += "<div class=\"list-actions\" hidden><button type=\"button\" class=\"button flat\">Add audio "
                     "files…</button>";
            html_ += "<input type=\"file\" multiple accept=\"audio/*,.wav,.flac,.aiff,.aif,.ogg,.mp3\" hidden "
                     "tabindex=\"-1\"></div>";
        }
        else
        {
            html_ += "<div class=\"" + escapeHtml(type) + styleClass(element) + "\">";
            children(element, base, depth);
            html_ += "</div>";
        }
    }

    ITheme& theme_;
    GadgetPage& page_;
    std::string html_;
    std::set<std::string> styles_;
    std::set<std::string> images_;
    int ids_ = 0;
    std::string labelledBy_; ///< the label naming the fields being written, if any
    std::string controlId_;  ///< the id the next field takes, which its label points to
};

} // namespace

GadgetPage GadgetPage::build(ITheme& theme, const std::vector<std::string>& forms, const std::string& title)
{
    GadgetPage page;
    Builder builder(theme, page);
    std::string body;
    std::string main; // the last form found: the gadget's window
    for (const std::string& name : forms)
    {
        builder.form(name, "", 0);
        std::string html = builder.takeHtml();
        if (html.empty())
            continue;
        // Each window is a region named by its title, so that a screen reader can go to it.
        const char* windowTitle = theme.getForm(name.c_str())->getAttribute("title");
        body += "<section class=\"panel\"" +
                (windowTitle && *windowTitle ? " aria-label=\"" + escapeHtml(windowTitle) + "\"" : std::string()) +
                ">" + html + "</section>";
        main = name;
    }
    // The alert is a modal dialog named by its message; the announcer reads out, politely, what
    // changes where the user is not (an upload's progress).
    page.html = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"><title>" +
                escapeHtml(title) +
                "</title><meta name=\"referrer\" content=\"no-referrer\"><link rel=\"stylesheet\" href=\"page.css\">"
                "<link rel=\"stylesheet\" href=\"theme.css\"></head><body data-main=\"" +
                escapeHtml(main) + "\"><main class=\"gadget\"><h1 class=\"visually-hidden\">" + escapeHtml(title) +
                "</h1>" + body +
                "<div id=\"announcer\" class=\"visually-hidden\" aria-live=\"polite\"></div></main>"
                "<div id=\"alert\" class=\"alert\" role=\"alertdialog\" aria-modal=\"true\" "
                "aria-labelledby=\"alert-text\" hidden>"
                "<p id=\"alert-text\"></p><button type=\"button\" class=\"button\">OK</button></div>"
                "<div id=\"offline\" class=\"offline\" role=\"alert\" hidden>The host has ended. Close this page.</div>"
                "<script src=\"page.js\"></script></body></html>\n";
    page.images.assign(builder.images().begin(), builder.images().end());
    page.themeCss = builder.css();
    return page;
}

} // namespace Host
