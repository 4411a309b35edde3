// The gadget's page as generated from a theme: the plug-in's own forms with everything they
// bind, and themes that try to break out of the page or to open views without end.
#include "host/gadget/GadgetPage.h"

#include "ThemeSupport.h"

#include <gtest/gtest.h>

#include <regex>

using namespace KVX;
using Host::GadgetPage;
using Host::PageBinding;
using ThemeTests::builtTheme;
using ThemeTests::loadTheme;
using ThemeTests::themePackage;

namespace {

size_t occurrences(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

} // namespace

TEST(GadgetPage, ThePluginsFormsBecomeOnePageThatBindsEveryControlByName)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    const GadgetPage page = GadgetPage::build(*theme, {"SorvelDashboard", "SorvelClient"}, "Sorvel Client");

    // Every view the two windows can show is part of the page, each in its place.
    for (const char* form : {"SorvelDashboard", "SorvelClient", "LoginView", "LoginPendingView", "ManagerView",
                             "SorvelClient.AccountInfo", "TrackInfoView", "ActivityInfoLoginView",
                             "ActivityInfoPendingView", "ActivityInfoView", "ActionIcon"})
        EXPECT_EQ(occurrences(page.html, std::string("data-form=\"") + form + "\""), 1u) << form;
    EXPECT_EQ(page.html.find("CredentialsUIPrompt"), std::string::npos) << "no window opens the dialog";
    EXPECT_NE(page.html.find("<title>Sorvel Client</title>"), std::string::npos);

    // Keys join the controller path and the name; the kind follows the element.
    const auto kindOf = [&](const char* key) { return page.bindings.at(key).kind; };
    EXPECT_EQ(kindOf(":loginPhase"), PageBinding::kProperty);
    EXPECT_EQ(kindOf("Client:isBusy"), PageBinding::kProperty);
    EXPECT_EQ(kindOf("TrackInfo:comment"), PageBinding::kParameter);
    EXPECT_EQ(kindOf(":trackList"), PageBinding::kList);
    EXPECT_EQ(page.bindings.at(":titlesList").element, "SelectBox");
    EXPECT_FALSE(page.bindings.at("Credentials:username").secret);
    ASSERT_TRUE(page.bindings.count("Credentials:password"));
    EXPECT_TRUE(page.bindings.at("Credentials:password").secret) << "its value never goes to the page";
    EXPECT_EQ(page.bindings.at(":trackList").style, "TrackList");
    EXPECT_EQ(page.bindings.at(":trackList").headerStyle, "TrackList.HeaderView");
    EXPECT_EQ(occurrences(page.html, "type=\"password\""), 1u);
    EXPECT_EQ(occurrences(page.html, "data-p=\":titlesList\""), 2u) << "both variants of the product chooser";
    EXPECT_NE(page.html.find("data-case=\"star\""), std::string::npos) << "a variant that matches by case";

    // Images, colours and fonts come from the package.
    for (const char* image : {"BusyIcon", "LogButton", "SorvelLogo", "StatsIcons", "BackgroundLogIn"})
        EXPECT_NE(std::find(page.images.begin(), page.images.end(), image), page.images.end()) << image;
    EXPECT_NE(page.themeCss.find("@keyframes a-BusyIcon"), std::string::npos) << "the busy indicator turns";
    EXPECT_NE(page.themeCss.find(".s-Sorvel_Heading{color:#031339ff;font:bold 13px \"Arial\""), std::string::npos)
        << page.themeCss.substr(0, 600);
    EXPECT_NE(page.themeCss.find(".s-Sorvel_OnDark .link,.s-Sorvel_OnDark.link{color:#8fd3f0ff}"), std::string::npos);
    EXPECT_NE(page.html.find("border-radius:3px;background-color:white;border:1px solid #b8c1caff;"),
              std::string::npos)
        << "the inspector's shape";
}

TEST(GadgetPage, EveryFieldIsNamedByItsLabelAndTheTrackTableIsAGridOverItsPainting)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);
    const std::string html = GadgetPage::build(*theme, {"SorvelDashboard", "SorvelClient"}, "Sorvel Client").html;

    // The label in front of a field names it: the field has the id its label points to.
    const auto labelOf = [&](const std::string& key) -> std::string {
        const std::smatch field = [&] {
            std::smatch match;
            std::regex_search(html, match,
                              std::regex("<(input|textarea|select)[^>]* id=\"(e[0-9]+)\"[^>]* data-p=\"" + key + "\""));
            return match;
        }();
        if (field.empty())
            return "no field with an id";
        std::smatch label;
        if (!std::regex_search(html, label, std::regex("<label[^>]* for=\"" + field[2].str() + "\">([^<]*)</label>")))
            return "no label for " + field[2].str();
        return label[1];
    };
    EXPECT_EQ(labelOf("Credentials:username"), "User name");
    EXPECT_EQ(labelOf("Credentials:password"), "Password");
    for (const auto& [key, label] :
         std::vector<std::pair<std::string, std::string>>{{"TrackInfo:name", "Title"},
                                                          {"TrackInfo:genre", "Genre"},
                                                          {"TrackInfo:year", "Year"},
                                                          {"TrackInfo:arranger", "Arranger"},
                                                          {"TrackInfo:composer", "Composer"},
                                                          {"TrackInfo:songwriter", "Songwriter"},
                                                          {"TrackInfo:isrc", "ISRC"},
                                                          {"TrackInfo:comment", "Comment"}})
        EXPECT_EQ(labelOf(key), label) << key;
    // A label in front of a box names every field in it: the product's name and both lists.
    std::smatch heading;
    ASSERT_TRUE(std::regex_search(
        html, heading, std::regex("<span class=\"label[^\"]*\" id=\"(e[0-9]+)\">Select or Add Product</span>")));
    EXPECT_EQ(occurrences(html, "aria-labelledby=\"" + heading[1].str() + "\""), 3u);
    EXPECT_EQ(occurrences(html, "aria-labelledby=\"" + heading[1].str() + "\" data-p=\":titlesList\""), 2u);
    EXPECT_EQ(occurrences(html, "aria-labelledby=\"" + heading[1].str() + "\" data-p=\":newProductName\""), 1u);
    // Only fields are named by a label element; the track table, with none in front of it, is
    // named after its list.
    EXPECT_EQ(occurrences(html, "for=\""), 10u) << "the two sign-in fields and the inspector's eight";

    // The track table: the painting is hidden from screen readers, the grid over it is what
    // they and the keyboard use, with its keys as its description.
    EXPECT_NE(
        html.find(
            "<canvas aria-hidden=\"true\"></canvas><div class=\"grid\" role=\"grid\" aria-multiselectable=\"true\" "
            "aria-label=\"Track list\" aria-describedby=\""),
        std::string::npos);
    std::smatch keys;
    ASSERT_TRUE(std::regex_search(
        html, keys, std::regex("aria-describedby=\"(e[0-9]+)\"></div></div></div><p id=\"\\1\" hidden>([^<]*)</p>")));
    EXPECT_NE(keys[2].str().find("Control and X picks the selected rows up"), std::string::npos);
    EXPECT_NE(
        html.find("<div class=\"list-actions\" hidden><button type=\"button\" class=\"button flat\">Add audio files"),
        std::string::npos);

    // One level-one heading, each window a named region, the alert a modal dialog named by its
    // message, and a polite announcer.
    EXPECT_EQ(occurrences(html, "<h1"), 1u);
    EXPECT_NE(html.find("<h1 class=\"visually-hidden\">Sorvel Client</h1>"), std::string::npos);
    EXPECT_NE(html.find("<section class=\"panel\" aria-label=\"Sorvel\">"), std::string::npos);
    EXPECT_NE(html.find("<section class=\"panel\" aria-label=\"Sorvel Client\">"), std::string::npos);
    EXPECT_NE(html.find("role=\"alertdialog\" aria-modal=\"true\" aria-labelledby=\"alert-text\""), std::string::npos);
    EXPECT_NE(html.find("<p id=\"alert-text\"></p>"), std::string::npos);
    EXPECT_NE(html.find("<div id=\"announcer\" class=\"visually-hidden\" aria-live=\"polite\"></div></main>"),
              std::string::npos);

    // The page reflows: a window's width is where layout starts, views and lists take their
    // place's width, nothing is held to a minimum width, boxes may grow taller than the theme says.
    EXPECT_NE(html.find("data-form=\"SorvelClient\" style=\"--width:700px;min-height:560px;\""), std::string::npos);
    EXPECT_NE(html.find("data-form=\"ManagerView\" style=\"background-image"), std::string::npos)
        << "no size of its own";
    EXPECT_EQ(html.find("min-width:"), std::string::npos);
    EXPECT_NE(html.find("data-list=\":trackList\" style=\"height:250px;\""), std::string::npos);
    EXPECT_NE(html.find("data-p=\"Credentials:username\" style=\"width:140px;height:26px;"), std::string::npos);
}

TEST(GadgetPage, AHostileThemeCannotBreakOutOfThePageOrOpenViewsWithoutEnd)
{
    const ThemeTests::Bytes package = themePackage(R"skin(<Skin>
      <Resources><Image name="../x" url="images/a.png"/></Resources>
      <Styles><Style name="A&quot;&gt;&lt;x"><Color name="textcolor" color="#000000"/></Style></Styles>
      <Forms>
        <Form name="Loop" title="&lt;/title&gt;&lt;script&gt;alert(1)&lt;/script&gt;" style="A&quot;&gt;&lt;x">
          <Label title="&lt;img src=x onerror=alert(1)&gt;"/>
          <EditBox name="a&quot; onfocus=&quot;alert(1)"/>
          <Link title="x" url="javascript:&quot;&gt;&lt;b&gt;"/>
          <Image image="../x"/>
          <View form="Other"/>
        </Form>
        <Form name="Other"><View form="Loop"/></Form>
      </Forms></Skin>)skin",
                                                   {{"images/a.png", ThemeTests::pngHeader(4, 4)}});
    ASSERT_EQ(loadTheme("hostile", package), kResultOk);
    ITheme* theme = GetThemeManager()->getTheme("hostile");
    ASSERT_NE(theme, nullptr);
    ASSERT_EQ(theme->checkSkin(), kResultOk);
    const GadgetPage page = GadgetPage::build(*theme, {"Loop", "Missing"}, "</title><script>");

    EXPECT_EQ(page.html.find("<script>alert"), std::string::npos);
    EXPECT_EQ(page.html.find("<img src=x"), std::string::npos);
    EXPECT_EQ(page.html.find("onfocus=\"alert"), std::string::npos);
    EXPECT_EQ(page.html.find("\"><b>"), std::string::npos);
    EXPECT_NE(page.html.find("&lt;img src=x onerror=alert(1)&gt;"), std::string::npos) << "shown as text";
    EXPECT_EQ(occurrences(page.html, "<script"), 1u) << "only the page's own script";
    EXPECT_TRUE(page.images.empty()) << "an image name that is a path is not served";
    EXPECT_EQ(page.themeCss.find("\"><x"), std::string::npos) << "style names become plain class names";

    // Views that open each other stop after a bounded depth; a missing form is left out.
    const size_t loops = occurrences(page.html, "data-form=\"Loop\"");
    EXPECT_GT(loops, 2u);
    EXPECT_LT(loops, 10u);
    EXPECT_EQ(page.html.find("Missing"), std::string::npos);
    EXPECT_EQ(occurrences(page.html, "<section"), 1u);
    EXPECT_NE(page.html.find("data-main=\"Loop\""), std::string::npos) << "the last form found is the window";
    // The document stays well formed: every opened element is closed.
    EXPECT_EQ(occurrences(page.html, "<div"), occurrences(page.html, "</div>"));
}
