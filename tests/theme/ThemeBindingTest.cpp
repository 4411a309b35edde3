// The forms of the plug-in's theme bind exactly the names that the components publish.
//
// The expected tables are written from the description of the gadget's forms and of the
// components behind them (the Manager, its children "Credentials", "Client", "TrackInfo" and
// "ActivityInfo", and the credential prompt's component).
#include "BindingWalk.h"
#include "ThemeSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <tuple>

using namespace KVX;
using namespace ThemeTests;

namespace {

/// The first element of `type` whose binding has `name`, searched depth first.
IThemeElement* find(IThemeElement& element, const char* type, const char* name)
{
    BindingRecord binding{};
    if (std::string(element.getType()) == type && element.getBinding(binding) == kResultOk &&
        std::string(binding.name) == name)
        return &element;
    for (uint32 i = 0; i < element.countChildren(); ++i)
        if (IThemeElement* found = find(*element.getChild(i), type, name))
            return found;
    return nullptr;
}

/// The first element of `type` with the attribute `title`.
IThemeElement* findTitled(IThemeElement& element, const char* type, const char* title)
{
    const char* own = element.getAttribute("title");
    if (std::string(element.getType()) == type && own && std::string(own) == title)
        return &element;
    for (uint32 i = 0; i < element.countChildren(); ++i)
        if (IThemeElement* found = findTitled(*element.getChild(i), type, title))
            return found;
    return nullptr;
}

std::string attribute(IThemeElement* element, const char* name)
{
    if (!element)
        return "(no element)";
    const char* value = element->getAttribute(name);
    return value ? value : "(none)";
}

} // namespace

TEST(ThemeBindings, EachFormBindsTheDescribedNames)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);

    const std::map<std::string, Bindings> expected = {
        {"SorvelClient", {"property .loginPhase", "form .LoginView", "form .LoginPendingView", "form .ManagerView"}},
        {"SorvelDashboard",
         {"property .loginPhase", "form ActivityInfo.ActivityInfoLoginView", "form .ActivityInfoPendingView",
          "form ActivityInfo.ActivityInfoView"}},
        {"LoginView",
         {"parameter Credentials.username", "parameter Credentials.password", "parameter Credentials.saveChecked",
          "parameter .signIn"}},
        {"LoginPendingView", {"property Client.isBusy"}},
        {"SorvelClient.AccountInfo", {"parameter Credentials.username", "parameter .signOut"}},
        {"ManagerView",
         {"form .SorvelClient.AccountInfo", "parameter .openDashboard", "parameter .replaceMode",
          "parameter .newProductName", "parameter .titlesList", "parameter .titlesList", "property Client.isBusy",
          "object .trackList", "property TrackInfo.hasFocusItem", "form TrackInfo.TrackInfoView",
          "property .isUploading", "parameter .upload", "parameter .cancel"}},
        {"TrackInfoView",
         {"parameter .name", "parameter .genre", "parameter .year", "parameter .arranger", "parameter .composer",
          "parameter .songwriter", "parameter .isrc", "parameter .comment"}},
        {"ActivityInfoLoginView", {"parameter .onCreateAccount"}},
        {"ActivityInfoPendingView", {"property Client.isBusy"}},
        {"ActivityInfoView",
         {"parameter .userName", "parameter .totalFans", "parameter .totalSales", "parameter .activePromotions",
          "parameter .userMessage", "property .actionIconChanged", "form .ActionIcon", "parameter .actionLink",
          "parameter .actionText"}},
        {"ActionIcon", {"property .actionIconId"}},
        {"CredentialsUIPrompt",
         {"parameter .description", "parameter .username", "parameter .password", "parameter .saveChecked"}},
    };

    std::set<std::string> forms;
    for (uint32 i = 0; i < theme->countForms(); ++i)
        forms.insert(theme->getFormName(i));
    EXPECT_EQ(theme->getFormName(theme->countForms()), nullptr);
    std::set<std::string> expectedForms;
    for (const auto& [form, bindings] : expected)
        expectedForms.insert(form);
    EXPECT_EQ(forms, expectedForms);

    for (const auto& [form, bindings] : expected)
        EXPECT_EQ(bindingsOf(*theme, form.c_str()), bindings) << form;
}

TEST(ThemeBindings, EveryBindingReachesANamePublishedByItsComponent)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);

    // What each component publishes, by its path from the Manager.
    const std::set<Binding> published = {
        // the Manager
        "parameter .signIn", "parameter .signOut", "parameter .replaceMode", "parameter .titlesList",
        "parameter .newProductName", "parameter .upload", "parameter .cancel", "parameter .openDashboard",
        "property .isUploading", "property .loginPhase", "property .credentialsAvailable", "object .trackList",
        // its children
        "parameter Credentials.description", "parameter Credentials.username", "parameter Credentials.password",
        "parameter Credentials.saveChecked", "property Client.isBusy", "parameter TrackInfo.name",
        "parameter TrackInfo.isrc", "parameter TrackInfo.year", "parameter TrackInfo.genre",
        "parameter TrackInfo.comment", "parameter TrackInfo.arranger", "parameter TrackInfo.composer",
        "parameter TrackInfo.songwriter", "property TrackInfo.hasFocusItem", "parameter ActivityInfo.userName",
        "parameter ActivityInfo.totalFans", "parameter ActivityInfo.totalSales",
        "parameter ActivityInfo.activePromotions", "parameter ActivityInfo.userMessage",
        "parameter ActivityInfo.actionLink", "parameter ActivityInfo.actionText",
        "parameter ActivityInfo.onCreateAccount", "property ActivityInfo.actionIconChanged",
        "property ActivityInfo.actionIconId"};

    std::set<Binding> window, dashboard;
    resolve(*theme, *theme->getForm("SorvelClient"), "", window, 0);
    resolve(*theme, *theme->getForm("SorvelDashboard"), "", dashboard, 0);
    for (const Binding& binding : window)
        EXPECT_TRUE(published.count(binding)) << "the window binds " << binding;
    for (const Binding& binding : dashboard)
        EXPECT_TRUE(published.count(binding)) << "the dashboard binds " << binding;

    // The window reaches the whole inspector, both sign-in fields and every Manager control.
    for (const char* name : {"name", "isrc", "year", "genre", "comment", "arranger", "composer", "songwriter"})
        EXPECT_TRUE(window.count(std::string("parameter TrackInfo.") + name)) << name;
    for (const char* binding :
         {"parameter Credentials.username", "parameter Credentials.password", "parameter Credentials.saveChecked",
          "parameter .signIn", "parameter .signOut", "parameter .upload", "parameter .cancel", "object .trackList"})
        EXPECT_TRUE(window.count(binding)) << binding;
    // The dashboard reaches every figure of the activity and its action icon.
    for (const char* name : {"userName", "totalFans", "totalSales", "activePromotions", "userMessage", "actionLink",
                             "actionText", "onCreateAccount"})
        EXPECT_TRUE(dashboard.count(std::string("parameter ActivityInfo.") + name)) << name;
    EXPECT_TRUE(dashboard.count("property ActivityInfo.actionIconId"));
    EXPECT_TRUE(dashboard.count("property Client.isBusy"));

    // The prompt is opened on a credential component of its own.
    std::set<Binding> prompt;
    resolve(*theme, *theme->getForm("CredentialsUIPrompt"), "Credentials", prompt, 0);
    for (const Binding& binding : prompt)
        EXPECT_TRUE(published.count(binding)) << "the prompt binds " << binding;
    EXPECT_EQ(prompt.size(), 4u);
}

TEST(ThemeBindings, ControlsCarryTheDescribedTitlesSizesAndOptions)
{
    ITheme* theme = builtTheme();
    ASSERT_NE(theme, nullptr);

    IThemeElement* client = theme->getForm("SorvelClient");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(attribute(client, "title"), "Sorvel Client");
    // The login phase picks the views in this order.
    IThemeElement* phases = client->getChild(0);
    ASSERT_NE(phases, nullptr);
    EXPECT_STREQ(phases->getType(), "Variant");
    ASSERT_EQ(phases->countChildren(), 3u);
    EXPECT_EQ(attribute(phases->getChild(0), "form"), "LoginView");
    EXPECT_EQ(attribute(phases->getChild(1), "form"), "LoginPendingView");
    EXPECT_EQ(attribute(phases->getChild(2), "form"), "ManagerView");

    IThemeElement* dashboard = theme->getForm("SorvelDashboard");
    ASSERT_NE(dashboard, nullptr);
    EXPECT_EQ(attribute(dashboard, "width"), "284");
    EXPECT_EQ(attribute(dashboard, "height"), "176");
    IThemeElement* panels = dashboard->getChild(0);
    ASSERT_NE(panels, nullptr);
    ASSERT_EQ(panels->countChildren(), 3u);
    EXPECT_EQ(attribute(panels->getChild(0), "form"), "ActivityInfoLoginView");
    EXPECT_EQ(attribute(panels->getChild(1), "form"), "ActivityInfoPendingView");
    EXPECT_EQ(attribute(panels->getChild(2), "form"), "ActivityInfoView");

    IThemeElement* login = theme->getForm("LoginView");
    ASSERT_NE(login, nullptr);
    IThemeElement* password = find(*login, "EditBox", "password");
    EXPECT_EQ(attribute(password, "options"), "password");
    EXPECT_EQ(attribute(password, "width"), "140");
    EXPECT_EQ(attribute(password, "height"), "26");
    EXPECT_EQ(attribute(find(*login, "EditBox", "username"), "width"), "140");
    EXPECT_EQ(attribute(find(*login, "CheckBox", "saveChecked"), "title"), "Remember my credentials");
    EXPECT_EQ(attribute(find(*login, "Button", "signIn"), "title"), "Sign in");
    IThemeElement* signUp = findTitled(*login, "Link", "Create New Account");
    EXPECT_EQ(attribute(signUp, "url").rfind("https://", 0), 0u) << attribute(signUp, "url");

    IThemeElement* account = theme->getForm("SorvelClient.AccountInfo");
    ASSERT_NE(account, nullptr);
    EXPECT_NE(find(*account, "Text", "username"), nullptr);
    EXPECT_EQ(attribute(find(*account, "Button", "signOut"), "title"), "Sign out");

    IThemeElement* manager = theme->getForm("ManagerView");
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(attribute(manager, "width"), "700");
    EXPECT_NE(findTitled(*manager, "Label", "Select or Add Product"), nullptr);
    IThemeElement* replaceMode = find(*manager, "Variant", "replaceMode");
    ASSERT_NE(replaceMode, nullptr);
    ASSERT_EQ(replaceMode->countChildren(), 2u);
    // Value 0: a new product's name beside a narrow select box; value 1: a wide select box.
    IThemeElement* newName = find(*replaceMode->getChild(0), "EditBox", "newProductName");
    IThemeElement* narrow = find(*replaceMode->getChild(0), "SelectBox", "titlesList");
    IThemeElement* wide = find(*replaceMode->getChild(1), "SelectBox", "titlesList");
    ASSERT_NE(newName, nullptr);
    ASSERT_NE(narrow, nullptr);
    ASSERT_NE(wide, nullptr);
    EXPECT_LT(std::stoi(attribute(narrow, "width")), std::stoi(attribute(wide, "width")));
    EXPECT_EQ(find(*replaceMode->getChild(1), "EditBox", "newProductName"), nullptr);
    EXPECT_EQ(attribute(find(*manager, "Link", "openDashboard"), "title"), "Open Dashboard");
    IThemeElement* trackList = find(*manager, "ListView", "trackList");
    EXPECT_EQ(attribute(trackList, "options"), "header selection vertical");
    EXPECT_EQ(attribute(trackList, "style"), "TrackList");
    EXPECT_NE(find(*manager, "BusyIndicator", "isBusy"), nullptr);
    IThemeElement* inspector = find(*manager, "Variant", "hasFocusItem");
    ASSERT_NE(inspector, nullptr);
    ASSERT_EQ(inspector->countChildren(), 2u);
    EXPECT_EQ(attribute(inspector->getChild(0), "title"), "No track selected");
    EXPECT_EQ(attribute(inspector->getChild(1), "form"), "TrackInfoView");
    IThemeElement* uploading = find(*manager, "Variant", "isUploading");
    ASSERT_NE(uploading, nullptr);
    ASSERT_EQ(uploading->countChildren(), 2u);
    EXPECT_EQ(attribute(find(*uploading->getChild(0), "Button", "upload"), "title"), "Upload");
    EXPECT_EQ(attribute(find(*uploading->getChild(1), "Button", "cancel"), "title"), "Cancel");

    IThemeElement* inspectorView = theme->getForm("TrackInfoView");
    ASSERT_NE(inspectorView, nullptr);
    EXPECT_EQ(attribute(find(*inspectorView, "EditBox", "comment"), "options"), "multiline");
    const std::map<std::string, std::string> labels = {
        {"Title", "name"},        {"Genre", "genre"},           {"Year", "year"}, {"Arranger", "arranger"},
        {"Composer", "composer"}, {"Songwriter", "songwriter"}, {"ISRC", "isrc"}, {"Comment", "comment"}};
    for (const auto& [label, name] : labels)
    {
        EXPECT_NE(findTitled(*inspectorView, "Label", label.c_str()), nullptr) << label;
        EXPECT_NE(find(*inspectorView, "EditBox", name.c_str()), nullptr) << name;
    }

    IThemeElement* activityLogin = theme->getForm("ActivityInfoLoginView");
    ASSERT_NE(activityLogin, nullptr);
    EXPECT_EQ(attribute(find(*activityLogin, "Link", "onCreateAccount"), "title"), "Sign in or create new account");
    IThemeElement* activity = theme->getForm("ActivityInfoView");
    ASSERT_NE(activity, nullptr);
    EXPECT_EQ(attribute(find(*activity, "Variant", "actionIconChanged"), "options"), "selectalways");

    // The action icon: one case per frame of "ActionIcons", the bulb for any other id.
    IThemeElement* icon = find(*theme->getForm("ActionIcon"), "Variant", "actionIconId");
    ASSERT_NE(icon, nullptr);
    EXPECT_EQ(attribute(icon, "default"), "bulb");
    std::vector<std::string> cases;
    for (uint32 i = 0; i < icon->countChildren(); ++i)
    {
        EXPECT_EQ(attribute(icon->getChild(i), "image"), "ActionIcons");
        EXPECT_EQ(attribute(icon->getChild(i), "frame"), attribute(icon->getChild(i), "case"));
        cases.push_back(attribute(icon->getChild(i), "case"));
    }
    EXPECT_EQ(cases, (std::vector<std::string>{"bulb", "check", "music", "star", "thumb"}));

    IThemeElement* prompt = theme->getForm("CredentialsUIPrompt");
    ASSERT_NE(prompt, nullptr);
    EXPECT_EQ(attribute(findTitled(*prompt, "DialogButton", "OK"), "code"), "1");
    EXPECT_EQ(attribute(findTitled(*prompt, "DialogButton", "Cancel"), "code"), "2");
    EXPECT_NE(find(*prompt, "Text", "description"), nullptr);
}
