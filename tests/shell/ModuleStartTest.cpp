// The module's start routine with the resources it is given: the value rule, the component
// "Module", the texts and the theme, and the refusal when the theme does not load.
#include "framework/package/PackageWriter.h"
#include "framework/plugin/ModuleComponent.h"
#include "framework/services/GuiServices.h"
#include "plugin/shell/Module.h"
#include "plugin/shell/Texts.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace KVX;
using namespace Sorvel;

namespace {

std::string bytesOf(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string propertyText(const Component& component, std::string_view name)
{
    Variant value;
    EXPECT_TRUE(component.getProperty(value, name));
    return value.toString().toUtf8();
}

class ModuleStart : public testing::Test
{
protected:
    void SetUp() override
    {
        gadget_ = bytesOf(BuildPaths::gadgetDescription());
        skin_ = bytesOf(BuildPaths::themePackage());
        ASSERT_FALSE(gadget_.empty());
        ASSERT_FALSE(skin_.empty());
    }
    void TearDown() override { Module::stop(); }

    std::vector<ModuleResource> resources(const std::string& skin) const
    {
        return {{"gadget.xml", gadget_.data(), gadget_.size()}, {"DEFAULT.SKIN", skin.data(), skin.size()}};
    }

    std::string gadget_;
    std::string skin_;
};

} // namespace

TEST_F(ModuleStart, OnlyTheLoadValueStartsTheModule)
{
    for (int value : {0, 2, -1})
    {
        EXPECT_TRUE(Module::start(value, resources(skin_))) << value;
        EXPECT_FALSE(Module::isStarted()) << value;
        EXPECT_EQ(Module::classFactory(), nullptr) << value;
        EXPECT_EQ(ModuleResources::find("gadget.xml"), nullptr) << "nothing is installed by value " << value;
    }

    const auto table = resources(skin_);
    ASSERT_TRUE(Module::start(1, table));
    ASSERT_TRUE(Module::isStarted());
    ModuleComponent* component = Module::component();
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(component->name(), "Module");
    EXPECT_EQ(propertyText(*component, "moduleId"), "sorvel");
    EXPECT_EQ(propertyText(*component, "vendor"), "Belvane");
    EXPECT_EQ(propertyText(*component, "title"), "Sorvel Support");

    const std::vector<String> texts = Texts::table().registeredTexts();
    for (const char* text : {"Refresh", "Upload failed!", "Session expired. Please login again.",
                             "Login failed. Please note that usernames and passwords are case sensitive.",
                             "-- Add a new Product --", "Untitled"})
        EXPECT_NE(std::find(texts.begin(), texts.end(), String(text)), texts.end()) << text;

    ITheme* theme = GetThemeManager()->getTheme("sorvel");
    ASSERT_NE(theme, nullptr);
    EXPECT_NE(theme->getForm("SorvelDashboard"), nullptr);
    EXPECT_EQ(ModuleResources::urlOf("gadget.xml").toDisplayString(), "resource://sorvel/gadget.xml");

    IClassFactory* factory = Module::classFactory();
    ASSERT_NE(factory, nullptr);
    EXPECT_EQ(Module::classFactory(), factory);
    EXPECT_EQ(factory->countClasses(), 3);

    // Started again: nothing changes, nothing is registered twice.
    EXPECT_TRUE(Module::start(1, table));
    EXPECT_EQ(Module::component(), component);
    EXPECT_EQ(Texts::table().registeredTexts().size(), texts.size());

    Module::stop();
    EXPECT_FALSE(Module::isStarted());
    EXPECT_EQ(Module::classFactory(), nullptr);
    EXPECT_EQ(ModuleResources::find("DEFAULT.SKIN"), nullptr);
}

TEST_F(ModuleStart, AThemeThatDoesNotLoadLeavesTheModuleStoppedWithTheFrameworksMessage)
{
    const std::string broken = skin_.substr(0, skin_.size() / 2);
    const std::string notAPackage = gadget_;
    for (const std::string* skin : {&broken, &notAPackage})
    {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(Module::start(1, resources(*skin)));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "ModuleComponent::loadTheme failed\n");
        EXPECT_FALSE(Module::isStarted());
        EXPECT_EQ(Module::component(), nullptr);
        EXPECT_EQ(Module::classFactory(), nullptr);
    }

    // A package that loads whole, with a skin that does not read.
    PackageWriter writer;
    const std::string skin = "<Skin><Styles>";
    ASSERT_TRUE(writer.addFile("skin.xml", {reinterpret_cast<const uint8*>(skin.data()), skin.size()}, PackageTime{}, true));
    std::vector<uint8> package;
    ASSERT_TRUE(writer.write(package));
    const std::string brokenSkin(package.begin(), package.end());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Module::start(1, resources(brokenSkin)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ModuleComponent::loadTheme failed\n");
    EXPECT_EQ(Module::classFactory(), nullptr);

    // No theme resource at all.
    const std::vector<ModuleResource> gadgetOnly{{"gadget.xml", gadget_.data(), gadget_.size()}};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Module::start(1, gadgetOnly));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ModuleComponent::loadTheme failed\n");
    EXPECT_EQ(Module::classFactory(), nullptr);
}
