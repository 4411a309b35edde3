// The theme manager with the plug-in's built theme, and with small themes made for one point.
#include "ThemeSupport.h"

#include "framework/package/PackageReader.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <cstring>
#include <map>
#include <set>

using namespace KVX;
using namespace ThemeTests;

namespace {

std::string sourcePath(const char* relative)
{
    return std::string(BuildPaths::sourceDir()) + "/" + relative;
}

std::uint32_t colour(ITheme& theme, const char* style, const char* name)
{
    std::uint32_t rgba = 0;
    EXPECT_EQ(theme.getColor(style, name, rgba), kResultOk) << style << " " << name;
    return rgba;
}

double metric(ITheme& theme, const char* style, const char* name)
{
    double value = -1;
    EXPECT_EQ(theme.getMetric(style, name, value), kResultOk) << style << " " << name;
    return value;
}

} // namespace

TEST(BuiltTheme, PackageHoldsTheSkinAndExactlyTheImagesItDescribes)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    const Bytes package = readFileBytes(BuildPaths::themePackage());
    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());
    std::set<std::string> root, files, described;
    for (const PackageEntry& entry : reader.entries())
    {
        EXPECT_TRUE(entry.folder || entry.compressed) << entry.path;
        if (entry.path.find('/') == std::string::npos)
            root.insert(entry.folder ? entry.path + "/" : entry.path);
        else if (entry.path.starts_with("images/") && !entry.folder)
            files.insert(entry.path);
        else
            ADD_FAILURE() << "unexpected entry " << entry.path;
    }
    EXPECT_EQ(root, (std::set<std::string>{"images/", "skin.xml"}));

    // Every image the skin describes reads from its file, in frames of equal size (the strip
    // divides evenly, and no frame is empty); no image file is left undescribed.
    pugi::xml_document skin;
    ASSERT_TRUE(skin.load_file(sourcePath("plugin/resources/theme/skin.xml").c_str()));
    for (const pugi::xml_node& node : skin.child("Skin").child("Resources").children("Image"))
    {
        const char* name = node.attribute("name").value();
        ImageRecord image{};
        ASSERT_EQ(theme->getImage(name, image), kResultOk) << name;
        EXPECT_STREQ(image.file, node.attribute("url").value()) << name;
        described.insert(image.file);
        const uint32 along = image.vertical ? image.height : image.width;
        EXPECT_GT(image.vertical ? image.width : image.height, 0u) << name;
        EXPECT_EQ(along % image.frameCount, 0u) << name;
        EXPECT_GT(along / image.frameCount, 0u) << name;
    }
    EXPECT_EQ(described, files);
}

TEST(BuiltTheme, LoadsAndReportsTheSkinAtItsInflatedSize)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    EXPECT_EQ(GetThemeManager()->getTheme("no such theme"), nullptr);

    const Bytes source = readFileBytes(sourcePath("plugin/resources/theme/skin.xml"));
    const void* data = nullptr;
    uint64 size = 0;
    ASSERT_EQ(theme->getFile("skin.xml", data, size), kResultOk);
    EXPECT_EQ(size, source.size());
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(std::memcmp(data, source.data(), source.size()), 0);

    // The same bytes on a second request: the theme keeps what it inflated.
    const void* again = nullptr;
    ASSERT_EQ(theme->getFile("skin.xml", again, size), kResultOk);
    EXPECT_EQ(again, data);
    EXPECT_EQ(theme->getFile("images/missing.png", data, size), kInvalidArgument);
    EXPECT_EQ(theme->getFile("images", data, size), kInvalidArgument);
    EXPECT_EQ(theme->getFile(nullptr, data, size), kInvalidArgument);
}

TEST(BuiltTheme, GadgetDescriptionNamesWhatTheThemeHolds)
{
    pugi::xml_document document;
    ASSERT_TRUE(document.load_file(sourcePath("plugin/resources/gadget.xml").c_str()));
    const pugi::xml_node gadget = document.document_element();
    EXPECT_STREQ(gadget.name(), "Gadget");
    const std::map<std::string, std::string> expected = {
        {"themeName", "sorvel"},
        {"formName", "SorvelClient"},
        {"iconName", "GadgetButton"},
        {"menuIconName", "GadgetMenuIcon"},
        {"Dashboard.formName", "SorvelDashboard"},
        {"Dashboard.title", "Sorvel"},
    };
    std::map<std::string, std::string> actual;
    for (const pugi::xml_attribute& attribute : gadget.attributes())
        actual[attribute.name()] = attribute.value();
    EXPECT_EQ(actual, expected);

    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    EXPECT_NE(theme->getForm(actual["formName"].c_str()), nullptr);
    EXPECT_NE(theme->getForm(actual["Dashboard.formName"].c_str()), nullptr);
    ImageRecord image{};
    EXPECT_EQ(theme->getImage(actual["iconName"].c_str(), image), kResultOk);
    EXPECT_EQ(theme->getImage(actual["menuIconName"].c_str(), image), kResultOk);
}

TEST(ThemeStyles, InheritedSettingsAreFoundAndOverridden)
{
    const Bytes package = themePackage(R"(<Skin>
      <Styles>
        <Style name="Base">
          <Color name="ink" color="#102030"/>
          <Color name="paper" color="white"/>
          <Metric name="gap" value="4"/>
          <Font name="textfont" face="Liberation Sans" size="11" style="italic"/>
          <Font name="plain" face="Arial" size="12"/>
        </Style>
        <Style name="Leaf.Header">
          <Metric name="headerHeight" value="26"/>
        </Style>
        <Style name="Middle" inherit="Base">
          <Color name="paper" color="#f0f0f0"/>
          <Metric name="gap" value="6.5"/>
        </Style>
        <Style name="Leaf" inherit="Middle">
          <Font name="textfont" face="Arial" size="12" style="bold italic"/>
        </Style>
      </Styles></Skin>)");
    ASSERT_EQ(loadTheme("inheritance", package), kResultOk);
    ITheme* theme = GetThemeManager()->getTheme("inheritance");
    ASSERT_NE(theme, nullptr);

    EXPECT_EQ(colour(*theme, "Leaf", "ink"), 0x102030FFu) << "two levels up";
    EXPECT_EQ(colour(*theme, "Leaf", "paper"), 0xF0F0F0FFu) << "the nearest definition wins";
    EXPECT_EQ(colour(*theme, "Base", "paper"), 0xFFFFFFFFu) << "a parent is not changed by its child";
    EXPECT_EQ(metric(*theme, "Leaf", "gap"), 6.5);
    FontRecord font{};
    ASSERT_EQ(theme->getFont("Leaf", "textfont", font), kResultOk);
    EXPECT_STREQ(font.face, "Arial");
    EXPECT_EQ(font.style, uint32(FontRecord::kBold | FontRecord::kItalic));
    ASSERT_EQ(theme->getFont("Middle", "textfont", font), kResultOk);
    EXPECT_STREQ(font.face, "Liberation Sans");
    EXPECT_EQ(font.size, 11);
    EXPECT_EQ(font.style, uint32(FontRecord::kItalic));
    ASSERT_EQ(theme->getFont("Leaf", "plain", font), kResultOk);
    EXPECT_EQ(font.style, uint32(FontRecord::kNormal));
    double value = 0;
    EXPECT_EQ(theme->getMetric("Leaf", "missing", value), kInvalidArgument);
    EXPECT_EQ(theme->getMetric("Leaf", "headerHeight", value), kInvalidArgument)
        << "a style does not inherit from one whose name extends its own";
    EXPECT_EQ(theme->getMetric(nullptr, "gap", value), kInvalidArgument);
    EXPECT_EQ(theme->getMetric("NoSuchStyle", "gap", value), kInvalidArgument);
}

TEST(ThemeStyles, ColourNotationsAndResourceColours)
{
    const std::pair<const char*, std::uint32_t> notations[] = {
        {"#CE2E23", 0xCE2E23FF}, {"031339", 0x031339FF}, {"ABCDEF", 0xABCDEFFF}, {"#01020380", 0x01020380},
        {"Grey", 0x808080FF},    {"gray", 0x808080FF},   {"black", 0x000000FF},  {"transparent", 0x00000000},
        {"Brand", 0x0F9CD5FF},   {"Glass", 0x11223344},  {"#f0e0d0", 0xF0E0D0FF}};
    std::string skin =
        R"(<Skin><Resources><Color name="Brand" color="#0F9CD5"/><Color name="Glass" color="#11223344"/>)"
        R"(</Resources><Styles><Style name="S">)";
    for (size_t i = 0; i < std::size(notations); ++i)
        skin += "<Color name='c" + std::to_string(i) + "' color='" + notations[i].first + "'/>";
    ASSERT_EQ(loadTheme("colours", themePackage(skin + "</Style></Styles></Skin>")), kResultOk);
    ITheme* theme = GetThemeManager()->getTheme("colours");
    ASSERT_NE(theme, nullptr);
    for (size_t i = 0; i < std::size(notations); ++i)
        EXPECT_EQ(colour(*theme, "S", ("c" + std::to_string(i)).c_str()), notations[i].second) << notations[i].first;
    EXPECT_EQ(colour(*theme, "", "Glass"), 0x11223344u) << "an empty style reads the colour resources";
    EXPECT_EQ(colour(*theme, nullptr, "Brand"), 0x0F9CD5FFu);

    for (const char* bad : {"#12345", "#1234567", "12345", "#GG0000", "reddish", "", "# 123456"})
    {
        const std::string skin = std::string(R"(<Skin><Styles><Style name="S"><Color name="c" color=")") + bad +
                                 R"("/></Style></Styles></Skin>)";
        EXPECT_EQ(skinOf("bad colour", themePackage(skin)), kInvalidArgument) << bad;
    }
}

TEST(ThemeLoading, MalformedThemesAreRefused)
{
    const Bytes png = pngHeader(32, 16);
    const std::pair<std::string, Bytes> image = {"images/i.png", png};
    struct Case
    {
        const char* what;
        std::string skin;
    };
    const Case cases[] = {
        {"not XML", "<Skin><Styles>"},
        {"another root", "<Theme/>"},
        {"an unknown section", "<Skin><Widgets/></Skin>"},
        {"an unknown resource", "<Skin><Resources><Sound name='x'/></Resources></Skin>"},
        {"an inheritance cycle",
         "<Skin><Styles><Style name='A' inherit='B'/><Style name='B' inherit='A'/></Styles></Skin>"},
        {"a style inheriting from itself", "<Skin><Styles><Style name='A' inherit='A'/></Styles></Skin>"},
        {"an unknown parent style", "<Skin><Styles><Style name='A' inherit='Nobody'/></Styles></Skin>"},
        {"a style declared twice", "<Skin><Styles><Style name='A'/><Style name='A'/></Styles></Skin>"},
        {"a metric that is no number",
         "<Skin><Styles><Style name='A'><Metric name='m' value='tall'/></Style></Styles></Skin>"},
        {"a font without size", "<Skin><Styles><Style name='A'><Font name='f' face='Arial'/></Style></Styles></Skin>"},
        {"an image without its file", "<Skin><Resources><Image name='I' url='images/none.png'/></Resources></Skin>"},
        {"a frame named twice",
         "<Skin><Resources><Image name='I' url='images/i.png' frames='a a'/></Resources></Skin>"},
        {"no frames", "<Skin><Resources><Image name='I' url='images/i.png' frames='0'/></Resources></Skin>"},
        {"an unknown frame", "<Skin><Resources><Image name='I' url='images/i.png' frames='h: a b'/></Resources>"
                             "<Forms><Form name='F'><Image image='I' frame='c'/></Form></Forms></Skin>"},
        {"an unknown image", "<Skin><Forms><Form name='F'><Image image='Nothing'/></Form></Forms></Skin>"},
        {"a view of an unknown form", "<Skin><Forms><Form name='F'><View form='G'/></Form></Forms></Skin>"},
        {"a view without a form", "<Skin><Forms><Form name='F'><View/></Form></Forms></Skin>"},
        {"an unknown style", "<Skin><Forms><Form name='F'><Label style='Nobody'/></Form></Forms></Skin>"},
        {"a form in a form", "<Skin><Forms><Form name='F'><Form name='G'/></Form></Forms></Skin>"},
        {"a form declared twice", "<Skin><Forms><Form name='F'/><Form name='F'/></Forms></Skin>"},
        {"two bindings on one element",
         "<Skin><Forms><Form name='F'><Variant name='p' property='q'/></Form></Forms></Skin>"},
        {"an empty controller step",
         "<Skin><Forms><Form name='F'><Text controller='A//B' name='x'/></Form></Forms></Skin>"},
        {"a shape of an unknown colour", "<Skin><Resources><Shape name='S' fill='nocolour'/></Resources></Skin>"},
    };
    // The package loads; its skin, read when first needed, is refused whole.
    for (const Case& entry : cases)
    {
        EXPECT_EQ(skinOf("malformed skin", themePackage(entry.skin, {image})), kInvalidArgument) << entry.what;
        ITheme* theme = GetThemeManager()->getTheme("malformed skin");
        ASSERT_NE(theme, nullptr);
        EXPECT_EQ(theme->countForms(), 0u) << entry.what << ": nothing of a broken skin is offered";
        uint32 rgba = 0;
        EXPECT_EQ(theme->getColor("A", "c", rgba), kInvalidArgument) << entry.what;
        const void* data = nullptr;
        uint64 size = 0;
        EXPECT_EQ(theme->getFile("skin.xml", data, size), kResultOk) << "its files still are";
    }

    EXPECT_EQ(loadTheme("malformed", packageOf({{"other.xml", textBytes("<Skin/>")}})), kInvalidArgument)
        << "no skin.xml";
    Bytes damaged = themePackage("<Skin/>");
    damaged.back() = 0;
    EXPECT_EQ(loadTheme("malformed", damaged), kInvalidArgument) << "not a package";
    EXPECT_EQ(GetThemeManager()->loadTheme("malformed", nullptr, 10), kInvalidArgument);
    EXPECT_EQ(GetThemeManager()->loadTheme(nullptr, damaged.data(), damaged.size()), kInvalidArgument);
    EXPECT_EQ(GetThemeManager()->getTheme("malformed"), nullptr) << "nothing was loaded under the name";

    // The smallest theme that is whole loads.
    EXPECT_EQ(loadTheme("minimal", themePackage("<Skin/>")), kResultOk);
    EXPECT_EQ(skinOf("minimal", themePackage("<Skin/>")), kResultOk);
}

TEST(ThemeLoading, ImagesReadTheirFramesAndOneThatIsNoPngIsReportedWhenAskedFor)
{
    const Bytes package = themePackage(
        "<Skin><Resources><Image name='Whole' url='images/good.png'/>"
        "<Image name='Counted' url='images/good.png' frames='v: 4'/>"
        "<Image name='Named' url='images/good.png' frames='normal normalOn'/>"
        "<Image name='Strip' url='images/good.png' frames='h: bulb check music star'/>"
        "<Image name='Busy' url='images/good.png' frames='h: 2' duration='1600'/>"
        "<Image name='Text' url='images/text.png'/></Resources></Skin>",
        {{"images/good.png", pngHeader(16, 64)}, {"images/text.png", textBytes("not a picture at all, really not")}});
    ASSERT_EQ(loadTheme("images", package), kResultOk);
    ITheme* theme = GetThemeManager()->getTheme("images");
    ASSERT_NE(theme, nullptr);
    struct Expected
    {
        const char* name;
        const char* frames;
        uint32 count, vertical, duration;
    };
    for (const Expected& expected :
         {Expected{"Whole", "", 1, 1, 0}, Expected{"Counted", "", 4, 1, 0},
          Expected{"Named", "normal normalOn", 2, 1, 0}, Expected{"Strip", "bulb check music star", 4, 0, 0},
          Expected{"Busy", "", 2, 0, 1600}})
    {
        ImageRecord image{};
        ASSERT_EQ(theme->getImage(expected.name, image), kResultOk) << expected.name;
        EXPECT_STREQ(image.file, "images/good.png");
        EXPECT_EQ(image.width, 16u);
        EXPECT_EQ(image.height, 64u);
        EXPECT_STREQ(image.frameNames, expected.frames) << expected.name;
        EXPECT_EQ(image.frameCount, expected.count) << expected.name;
        EXPECT_EQ(image.vertical, expected.vertical) << expected.name;
        EXPECT_EQ(image.duration, expected.duration) << expected.name;
    }
    uint32 index = 99;
    ASSERT_EQ(theme->findImageFrame("Named", "normalOn", index), kResultOk);
    EXPECT_EQ(index, 1u);
    ASSERT_EQ(theme->findImageFrame("Strip", "star", index), kResultOk);
    EXPECT_EQ(index, 3u);
    ASSERT_EQ(theme->findImageFrame("Strip", "bulb", index), kResultOk);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(theme->findImageFrame("Strip", "heart", index), kInvalidArgument);
    EXPECT_EQ(theme->findImageFrame("Nothing", "bulb", index), kInvalidArgument);

    ImageRecord image{};
    EXPECT_EQ(theme->getImage("Text", image), kUnexpected);
    EXPECT_EQ(theme->getImage("Missing", image), kInvalidArgument);
}

TEST(ThemeElements, RetainingAnElementKeepsItsThemeAlive)
{
    const Bytes first = themePackage("<Skin><Forms><Form name='Old'><Label title='still here'/></Form></Forms></Skin>");
    const Bytes second = themePackage("<Skin><Forms><Form name='New'/></Forms></Skin>");
    ASSERT_EQ(loadTheme("replaced", first), kResultOk);
    IThemeElement* form = GetThemeManager()->getTheme("replaced")->getForm("Old");
    ASSERT_NE(form, nullptr);
    EXPECT_EQ(form->retain(), 2u) << "the manager's reference and ours, both on the theme";

    ASSERT_EQ(loadTheme("replaced", second), kResultOk);
    ITheme* current = GetThemeManager()->getTheme("replaced");
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(current->getForm("Old"), nullptr);
    EXPECT_NE(current->getForm("New"), nullptr);

    // The replaced theme lives on for us: its element and texts are intact.
    ASSERT_EQ(form->countChildren(), 1u);
    EXPECT_STREQ(form->getChild(0)->getAttribute("title"), "still here");
    EXPECT_EQ(form->getChild(1), nullptr);
    void* asTheme = nullptr;
    EXPECT_EQ(form->queryInterface(ITheme::kIID, &asTheme), kInvalidArgument) << "an element is not its theme";
    EXPECT_EQ(form->release(), 0u) << "ours was the last reference";
}
