// The forms of the plug-in's theme bind exactly the described names. The expected table is
// written from the description of the gadget's forms; that the live components publish every one
// of them is checked against the Manager itself (tests/controller/ManagerFormsTest.cpp).
#include "BindingWalk.h"
#include "ThemeSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

using namespace KVX;
using namespace ThemeTests;

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
