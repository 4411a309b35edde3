// Every name that the theme's forms bind to is published by the live Manager and its children,
// checked through the component interface as the host's forms reach it.

#include "tests/controller/ManagerFixture.h"
#include "tests/theme/BindingWalk.h"
#include "tests/theme/ThemeSupport.h"

using namespace ControllerTests;

namespace {

/// Whether the live component tree under `root` publishes `binding` ("kind path.name").
bool publishes(IComponent& root, const std::string& binding)
{
    const size_t space = binding.find(' ');
    const size_t dot = binding.rfind('.');
    const std::string kind = binding.substr(0, space);
    const std::string path = binding.substr(space + 1, dot - space - 1);
    const std::string name = binding.substr(dot + 1);
    IComponent* component = &root;
    for (size_t start = 0; component && start < path.size();)
    {
        const size_t end = std::min(path.find('/', start), path.size());
        component = component->lookupChild(path.substr(start, end - start).c_str());
        start = end + 1;
    }
    if (!component)
        return false;
    if (kind == "parameter")
        return component->lookupParameter(name.c_str()) != nullptr;
    if (kind == "object")
        return component->lookupObject(name.c_str()) != nullptr;
    ValueRecord value;
    return kind == "property" && component->readProperty(name.c_str(), value) == kResultOk;
}

TEST_F(ManagerAgainstSandbox, EveryNameTheFormsBindToIsPublished)
{
    ITheme* theme = ThemeTests::builtTheme();
    ASSERT_NE(theme, nullptr);
    providerSetup().completeLater = true;
    open();

    std::set<ThemeTests::Binding> window, prompt;
    ThemeTests::resolve(*theme, *theme->getForm("SorvelClient"), "", window, 0);
    ThemeTests::resolve(*theme, *theme->getForm("SorvelDashboard"), "", window, 0);
    ThemeTests::resolve(*theme, *theme->getForm("CredentialsUIPrompt"), "Credentials", prompt, 0);
    ASSERT_GT(window.size(), 30u);
    IComponent& gadget = *manager;
    for (const auto& binding : window)
        EXPECT_TRUE(publishes(gadget, binding)) << binding;
    for (const auto& binding : prompt)
        EXPECT_TRUE(publishes(gadget, binding)) << binding;
    EXPECT_FALSE(publishes(gadget, "parameter .noSuchThing")) << "the check can fail";
    EXPECT_FALSE(publishes(gadget, "object .titlesList"));
}

} // namespace
