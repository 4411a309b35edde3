// The theme manager with the plug-in's built theme, and with small themes made for one point.
#include "ThemeSupport.h"

#include "framework/package/PackageReader.h"

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
    return std::string(SORVEL_SOURCE_DIR) + "/" + relative;
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

TEST(BuiltTheme, PackageHoldsTheImagesFolderAndTheSkin)
{
    const Bytes package = readFileBytes(SORVEL_THEME_PACKAGE);
    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());

    std::set<std::string> root, images;
    for (const PackageEntry& entry : reader.entries())
    {
        const size_t slash = entry.path.find('/');
        if (slash == std::string::npos)
            root.insert(entry.folder ? entry.path + "/" : entry.path);
        else if (entry.path.substr(0, slash) == "images" && !entry.folder)
            images.insert(entry.path.substr(slash + 1));
        else
            ADD_FAILURE() << "unexpected entry " << entry.path;
    }
    EXPECT_EQ(root, (std::set<std::string>{"images/", "skin.xml"}));
    const std::set<std::string> described = {
        "ActionIcons.png", "Background.png",       "BackgroundLogIn.png", "BGHeadlines.png", "busy.png",
        "DarkButton.png",  "GadgetButton.png",     "GadgetMenuIcon.png",  "LinkIcon.png",    "ListHeaderSorvel.png",
        "LogButton.png",   "SorvelIcon.png",       "SorvelLogo.png",      "ProductIcon.png", "StatsIcons.png",
        "TextBoxBack.png", "TextBoxBackStart.png", "TrackIcon.png",       "UploadIcon.png"};
    EXPECT_EQ(images.size(), 19u);
    EXPECT_EQ(images, described);
    for (const PackageEntry& entry : reader.entries())
    {
        if (!entry.folder)
        {
            EXPECT_TRUE(entry.compressed) << entry.path;
        }
    }
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

TEST(BuiltTheme, TrackListColoursAndMetricsReadExactly)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    const std::map<std::string, std::uint32_t> expected = {
        {"textcolor", 0x000000FF}, {"status", 0xFFFFFFFF},  {"statusup", 0x031339FF},     {"onserver", 0x9099A2FF},
        {"replace", 0x56568CFF},   {"upload", 0x59BCDCFF},  {"incompatible", 0x808080FF}, {"uploading", 0x0F9CD5FF},
        {"error", 0xCE2E23FF},     {"success", 0x1B9E4FFF},
    };
    for (const auto& [name, rgba] : expected)
        EXPECT_EQ(colour(*theme, "TrackList", name.c_str()), rgba) << name;
    EXPECT_EQ(metric(*theme, "TrackList", "rowHeight"), 26);
    EXPECT_EQ(metric(*theme, "TrackList.HeaderView", "headerHeight"), 26);

    FontRecord font{};
    ASSERT_EQ(theme->getFont("TrackList", "textfont", font), kResultOk);
    EXPECT_STREQ(font.face, "Arial");
    EXPECT_EQ(font.size, 12);
    EXPECT_EQ(font.style, uint32(FontRecord::kNormal));
    ASSERT_EQ(theme->getFont("TrackList", "activefont", font), kResultOk);
    EXPECT_STREQ(font.face, "Arial");
    EXPECT_EQ(font.size, 12);
    EXPECT_EQ(font.style, uint32(FontRecord::kBold));

    std::uint32_t rgba = 0;
    EXPECT_EQ(theme->getColor("TrackList", "nonesuch", rgba), kInvalidArgument);
    EXPECT_EQ(theme->getColor("NoSuchStyle", "status", rgba), kInvalidArgument);
    double value = 0;
    EXPECT_EQ(theme->getMetric("TrackList", "headerHeight", value), kInvalidArgument)
        << "the table's style does not inherit from the header's";
}

TEST(BuiltTheme, DescribedImagesExistWithTheirFrames)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    struct Expected
    {
        const char* name;
        const char* frames;
        uint32 count;
        bool vertical;
        uint32 duration;
    };
    const Expected described[] = {
        {"GadgetButton", "normal normalOn", 2, true, 0},
        {"GadgetMenuIcon", "", 1, true, 0},
        {"ProductIcon", "", 1, true, 0},
        {"TrackIcon", "", 1, true, 0},
        {"UploadIcon", "", 1, true, 0},
        {"SorvelLogo", "", 1, true, 0},
        {"BusyIcon", "", 17, false, 1600},
        {"StatsIcons", "followers sales promos", 3, false, 0},
        {"ActionIcons", "bulb check music star thumb", 5, false, 0},
    };
    for (const Expected& expected : described)
    {
        ImageRecord image{};
        ASSERT_EQ(theme->getImage(expected.name, image), kResultOk) << expected.name;
        EXPECT_STREQ(image.frameNames, expected.frames) << expected.name;
        EXPECT_EQ(image.frameCount, expected.count) << expected.name;
        EXPECT_EQ(image.vertical != 0, expected.vertical) << expected.name;
        EXPECT_EQ(image.duration, expected.duration) << expected.name;
        // Frames are of equal size: the strip divides evenly, and no frame is empty.
        const uint32 along = image.vertical ? image.height : image.width;
        EXPECT_EQ(along % image.frameCount, 0u) << expected.name;
        EXPECT_GT(along / image.frameCount, 0u) << expected.name;
    }

    uint32 index = 99;
    ASSERT_EQ(theme->findImageFrame("GadgetButton", "normalOn", index), kResultOk);
    EXPECT_EQ(index, 1u);
    ASSERT_EQ(theme->findImageFrame("ActionIcons", "thumb", index), kResultOk);
    EXPECT_EQ(index, 4u);
    ASSERT_EQ(theme->findImageFrame("StatsIcons", "followers", index), kResultOk);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(theme->findImageFrame("ActionIcons", "heart", index), kInvalidArgument);
    EXPECT_EQ(theme->findImageFrame("NoSuchImage", "bulb", index), kInvalidArgument);

    // Every image file of the package is one of the skin's images.
    const char* files[] = {"ActionIcons", "Background",       "BackgroundLogIn", "BGHeadlines", "busy",
                           "DarkButton",  "GadgetButton",     "GadgetMenuIcon",  "LinkIcon",    "ListHeaderSorvel",
                           "LogButton",   "SorvelIcon",       "SorvelLogo",      "ProductIcon", "StatsIcons",
                           "TextBoxBack", "TextBoxBackStart", "TrackIcon",       "UploadIcon"};
    for (const char* file : files)
    {
        const std::string name = std::string(file) == "busy" ? "BusyIcon" : file;
        ImageRecord image{};
        ASSERT_EQ(theme->getImage(name.c_str(), image), kResultOk) << name;
        EXPECT_EQ(std::string(image.file), "images/" + std::string(file) + ".png");
        EXPECT_GT(image.width, 0u);
        EXPECT_GT(image.height, 0u);
    }
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
    double value = 0;
    EXPECT_EQ(theme->getMetric("Leaf", "missing", value), kInvalidArgument);
    EXPECT_EQ(theme->getMetric(nullptr, "gap", value), kInvalidArgument);
}

TEST(ThemeStyles, ColourNotationsAndResourceColours)
{
    const Bytes package = themePackage(R"(<Skin>
      <Resources>
        <Color name="Brand" color="#0F9CD5"/>
        <Color name="Glass" color="#11223344"/>
      </Resources>
      <Styles>
        <Style name="S">
          <Color name="hashed" color="#CE2E23"/>
          <Color name="bare" color="031339"/>
          <Color name="bareUpper" color="ABCDEF"/>
          <Color name="withAlpha" color="#01020380"/>
          <Color name="named" color="Grey"/>
          <Color name="gray" color="gray"/>
          <Color name="black" color="black"/>
          <Color name="clear" color="transparent"/>
          <Color name="brand" color="Brand"/>
        </Style>
      </Styles></Skin>)");
    ASSERT_EQ(loadTheme("colours", package), kResultOk);
    ITheme* theme = GetThemeManager()->getTheme("colours");
    ASSERT_NE(theme, nullptr);
    EXPECT_EQ(colour(*theme, "S", "hashed"), 0xCE2E23FFu);
    EXPECT_EQ(colour(*theme, "S", "bare"), 0x031339FFu);
    EXPECT_EQ(colour(*theme, "S", "bareUpper"), 0xABCDEFFFu);
    EXPECT_EQ(colour(*theme, "S", "withAlpha"), 0x01020380u);
    EXPECT_EQ(colour(*theme, "S", "named"), 0x808080FFu);
    EXPECT_EQ(colour(*theme, "S", "gray"), 0x808080FFu);
    EXPECT_EQ(colour(*theme, "S", "black"), 0x000000FFu);
    EXPECT_EQ(colour(*theme, "S", "clear"), 0x00000000u);
    EXPECT_EQ(colour(*theme, "S", "brand"), 0x0F9CD5FFu);
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

TEST(ThemeLoading, ImageThatIsNoPngIsReportedWhenAskedFor)
{
    const Bytes package = themePackage(
        "<Skin><Resources><Image name='Good' url='images/good.png' frames='v: 4'/>"
        "<Image name='Text' url='images/text.png'/></Resources></Skin>",
        {{"images/good.png", pngHeader(16, 64)}, {"images/text.png", textBytes("not a picture at all, really not")}});
    ASSERT_EQ(loadTheme("images", package), kResultOk);
    ITheme* theme = GetThemeManager()->getTheme("images");
    ASSERT_NE(theme, nullptr);
    ImageRecord image{};
    ASSERT_EQ(theme->getImage("Good", image), kResultOk);
    EXPECT_EQ(image.width, 16u);
    EXPECT_EQ(image.height, 64u);
    EXPECT_EQ(image.frameCount, 4u);
    EXPECT_EQ(image.vertical, 1u);
    EXPECT_STREQ(image.frameNames, "");
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
