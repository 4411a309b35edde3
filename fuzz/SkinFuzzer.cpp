// Reads the input as the skin.xml of a theme package and walks whatever the theme then offers:
// styles, images and every form's tree with its bindings.
#include "framework/package/PackageWriter.h"
#include "platform/kvxgui/Theme.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

const std::vector<std::uint8_t>& imageFile()
{
    static const std::vector<std::uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0,  0, 0,
                                                  13,   'I', 'H', 'D', 'R',  0,    0,    0,    64, 0, 0,
                                                  0,    16,  8,   6,   0,    0,    0,    0,    0,  0, 0};
    return png;
}

void walk(KVX::IThemeElement& element, int depth)
{
    if (depth > 100)
        std::abort();
    for (KVX::uint32 i = 0; i < element.countAttributes(); ++i)
        if (!element.getAttributeName(i) || !element.getAttributeValue(i))
            std::abort();
    KVX::BindingRecord binding{};
    if (element.getBinding(binding) == KVX::kResultOk && (!binding.name || !binding.controller))
        std::abort();
    for (KVX::uint32 i = 0; i < element.countChildren(); ++i)
        walk(*element.getChild(i), depth + 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KVX::PackageWriter writer;
    writer.addFile("skin.xml", {data, size}, KVX::PackageTime{}, false);
    writer.addFile("images/a.png", imageFile(), KVX::PackageTime{}, false);
    std::vector<std::uint8_t> package;
    if (!writer.write(package))
        return 0;
    KVX::Ref<KVX::Gui::Theme> theme = KVX::Gui::Theme::create(package);
    if (!theme)
        return 0;
    if (theme->checkSkin() != KVX::kResultOk && theme->countForms() != 0)
        std::abort(); // a broken skin offers nothing
    for (KVX::uint32 i = 0; i < theme->countForms(); ++i)
    {
        KVX::IThemeElement* form = theme->getForm(theme->getFormName(i));
        if (!form)
            std::abort();
        walk(*form, 0);
    }
    KVX::uint32 rgba = 0;
    double value = 0;
    KVX::FontRecord font{};
    KVX::ImageRecord image{};
    for (const char* style : {"A", "B", "TrackList", "Standard"})
    {
        theme->getColor(style, "c", rgba);
        theme->getMetric(style, "m", value);
        theme->getFont(style, "f", font);
    }
    theme->getImage("I", image);
    return 0;
}
