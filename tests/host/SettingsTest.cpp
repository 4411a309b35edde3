// The host's configuration: the settings file with its permission check, the environment over
// it, and the provider class through which the plug-in reads the result.
#include "host/config/Settings.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IAsyncOperation.h"
#include "framework/interfaces/IAttributeList.h"
#include "framework/services/SystemServices.h"
#include "host/config/ConfigurationProvider.h"
#include "host/config/LanguageFile.h"
#include "host/config/UserFile.h"
#include "tests/system/ScopedEnvironment.h"
#include "tests/system/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace KVX;
using namespace Host;

namespace {

constexpr const char* kVariables[] = {"SORVEL_SERVER_URL", "SORVEL_LOGIN_URL", "SORVEL_PARTNER_ID", "SORVEL_PARTNER_KEY"};

const char* const kComplete = R"({"ServerURL": "https://api.example.com/v1/", "LoginURL": "https://example.com/login",
                                  "PartnerID": "label-7", "PartnerKey": "k3y"})";

/// A configuration folder of its own and none of the four variables, for one test.
class SettingsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        configHome_ = std::make_unique<ScopedEnvironment>("XDG_CONFIG_HOME", folder_.path().c_str());
        for (const char* name : kVariables)
            variables_.push_back(std::make_unique<ScopedEnvironment>(name, nullptr));
    }

    std::string writeFile(const std::string& text, mode_t mode = 0600)
    {
        const std::filesystem::path path = folder_.path() / "sorvel" / "config.json";
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
        chmod(path.c_str(), mode);
        return path.string();
    }

    TemporaryDirectory folder_;
    std::unique_ptr<ScopedEnvironment> configHome_;
    std::vector<std::unique_ptr<ScopedEnvironment>> variables_;
};

std::string textOf(IAttributeList& list, const char* name)
{
    ValueRecord value;
    if (list.findAttribute(name, value) != kResultOk || value.type != ValueRecord::kString)
        return "<missing>";
    return std::string(value.text, value.textLength);
}

} // namespace

TEST_F(SettingsTest, NothingConfiguredMeansNoServiceAndTheFileComesUnderTheEnvironment)
{
    Settings settings;
    std::string error;
    ASSERT_TRUE(Settings::load(settings, error)) << error;
    EXPECT_FALSE(settings.hasServer());
    EXPECT_EQ(Settings::filePath(), (folder_.path() / "sorvel" / "config.json").string());

    writeFile(kComplete);
    ASSERT_TRUE(Settings::load(settings, error)) << error;
    EXPECT_EQ(settings.serverUrl, "https://api.example.com/v1/");
    EXPECT_EQ(settings.loginUrl, "https://example.com/login");
    EXPECT_EQ(settings.partnerId, "label-7");
    EXPECT_EQ(settings.partnerKey, "k3y");

    // Each variable wins over the file; an empty one does not count.
    ScopedEnvironment server("SORVEL_SERVER_URL", "http://127.0.0.1:8080/api/");
    ScopedEnvironment key("SORVEL_PARTNER_KEY", "");
    ASSERT_TRUE(Settings::load(settings, error)) << error;
    EXPECT_EQ(settings.serverUrl, "http://127.0.0.1:8080/api/");
    EXPECT_EQ(settings.partnerKey, "k3y");
    EXPECT_EQ(settings.partnerId, "label-7");
}

TEST_F(SettingsTest, AFileOthersCanReadIsRefusedWithoutItsSecret)
{
    for (mode_t mode : {0644, 0640, 0604, 0660, 0602})
    {
        const std::string path = writeFile(kComplete, mode);
        Settings settings;
        std::string error;
        EXPECT_FALSE(Settings::load(settings, error)) << std::oct << mode;
        EXPECT_NE(error.find(path), std::string::npos) << error;
        EXPECT_NE(error.find("chmod 600"), std::string::npos) << error;
        EXPECT_EQ(error.find("k3y"), std::string::npos) << "the partner key is not shown: " << error;
    }
    writeFile(kComplete, 0400);
    Settings settings;
    std::string error;
    EXPECT_TRUE(Settings::load(settings, error)) << error;
}

TEST_F(SettingsTest, BadFilesAndIncompleteOrWrongValuesAreExplained)
{
    const std::pair<const char*, const char*> cases[] = {
        {"", "is not valid JSON: line 1, column 1: The document is empty."},
        {"[1, 2]", "is not a JSON object"},
        {"{\"ServerURL\": ", "is not valid JSON: line 1, column 15: Invalid value."},
        {"{\n  \"ServerURL\": \"https://\u00fcber/\"\n  \"LoginURL\": \"x\"}", "line 3, column 3: Missing a comma"},
        {"{\"Überall\": \"x\",}", "line 1, column 17: Missing a name for object member."},
        {R"({"ServerUrl": "https://x/"})", "unknown setting \"ServerUrl\""},
        {R"({"PartnerID": 7})", "\"PartnerID\" must be a text"},
        {R"({"ServerURL": "https://api.example.com/"})", "LoginURL, PartnerID, PartnerKey missing"},
        {R"({"PartnerKey": "k3y"})", "ServerURL, LoginURL, PartnerID missing"},
        {R"({"ServerURL": "ftp://api.example.com/", "LoginURL": "https://e/", "PartnerID": "p", "PartnerKey": "k"})",
         "ServerURL is not an http or https address"},
        {R"({"ServerURL": "https://a/", "LoginURL": "login", "PartnerID": "p", "PartnerKey": "k"})",
         "LoginURL is not an http or https address"},
    };
    for (const auto& [text, message] : cases)
    {
        writeFile(text);
        Settings settings;
        std::string error;
        EXPECT_FALSE(Settings::load(settings, error)) << text;
        EXPECT_NE(error.find(message), std::string::npos) << text << " -> " << error;
    }

    // The environment can complete a partial file.
    writeFile(R"({"ServerURL": "https://api.example.com/", "LoginURL": "https://example.com/login"})");
    ScopedEnvironment id("SORVEL_PARTNER_ID", "p");
    ScopedEnvironment key("SORVEL_PARTNER_KEY", "k");
    Settings settings;
    std::string error;
    EXPECT_TRUE(Settings::load(settings, error)) << error;

    // A folder where the file should be.
    std::filesystem::remove(Settings::filePath());
    std::filesystem::create_directories(Settings::filePath());
    EXPECT_FALSE(Settings::load(settings, error));
    EXPECT_NE(error.find("is not a file"), std::string::npos) << error;
}

TEST_F(SettingsTest, TheProviderAnswersTheNameSorvelBothWays)
{
    Settings settings;
    std::string error;
    ASSERT_TRUE(Settings::parse(kComplete, "test", settings, error)) << error;
    ASSERT_TRUE(ConfigurationProvider::install(settings, error)) << error;

    void* created = nullptr;
    ASSERT_EQ(GetPlugInManager()->createInstance(IConfigurationProvider::kClassId, IConfigurationProvider::kIID, &created),
              kResultOk);
    auto provider = Ref<IConfigurationProvider>::adopt(static_cast<IConfigurationProvider*>(created));

    IAttributeList* values = nullptr;
    ASSERT_EQ(provider->getConfiguration("sorvel", "Sorvel Client", &values), kResultOk);
    ASSERT_NE(values, nullptr);
    EXPECT_EQ(textOf(*values, "ServerURL"), "https://api.example.com/v1/");
    EXPECT_EQ(textOf(*values, "LoginURL"), "https://example.com/login");
    EXPECT_EQ(textOf(*values, "PartnerID"), "label-7");
    EXPECT_EQ(textOf(*values, "PartnerKey"), "k3y");
    values->release();
    EXPECT_EQ(provider->getConfiguration("other", "", &values), kInvalidArgument);
    EXPECT_EQ(values, nullptr);

    IAsyncOperation* operation = nullptr;
    EXPECT_EQ(provider->fetchConfiguration("other", &operation), kInvalidArgument);
    EXPECT_EQ(operation, nullptr);
    ASSERT_EQ(provider->fetchConfiguration("sorvel", &operation), kResultOk);
    ASSERT_NE(operation, nullptr);
    auto held = Ref<IAsyncOperation>::adopt(operation);
    EXPECT_NE(held->getState(), IAsyncOperation::kCompleted) << "it completes from the run loop";
    ASSERT_TRUE(EventWait::until([&] { return held->getState() == IAsyncOperation::kCompleted; }, 2000));
    IUnknown* result = nullptr;
    ASSERT_EQ(held->getResult(&result), kResultOk);
    ASSERT_NE(result, nullptr);
    auto heldResult = Ref<IUnknown>::adopt(result);
    void* list = nullptr;
    ASSERT_EQ(result->queryInterface(IAttributeList::kIID, &list), kResultOk);
    auto fetched = Ref<IAttributeList>::adopt(static_cast<IAttributeList*>(list));
    EXPECT_EQ(textOf(*fetched, "PartnerID"), "label-7");

    ConfigurationProvider::uninstall();
    created = nullptr;
    EXPECT_NE(GetPlugInManager()->createInstance(IConfigurationProvider::kClassId, IConfigurationProvider::kIID, &created),
              kResultOk);
    EXPECT_EQ(created, nullptr);
}

TEST_F(SettingsTest, ThePreflightLimitsComeFromTheFileAndBadOnesAreExplained)
{
    Settings settings;
    std::string error;
    ASSERT_TRUE(Settings::parse(R"({"Preflight": {"TruePeakMax": -2, "ClippedSamplesMax": 10, "LoudnessMax": -8.5,
                                    "LoudnessMin": -24, "LeadingSilenceMax": 0.5}})",
                                "test", settings, error))
        << error;
    EXPECT_EQ(settings.preflight.truePeakMax, -2.0);
    EXPECT_EQ(settings.preflight.clippedSamplesMax, 10);
    EXPECT_EQ(settings.preflight.loudnessMax, -8.5);
    EXPECT_EQ(settings.preflight.loudnessMin, -24.0);
    EXPECT_EQ(settings.preflight.leadingSilenceMax, 0.5);
    EXPECT_TRUE(settings.isEmpty()) << "limits configure no service";

    // Limits not named keep their defaults.
    settings = {};
    ASSERT_TRUE(Settings::parse(R"({"Preflight": {"LoudnessMax": -6}})", "test", settings, error)) << error;
    EXPECT_EQ(settings.preflight.truePeakMax, PreflightLimits{}.truePeakMax);
    EXPECT_EQ(settings.preflight.loudnessMax, -6.0);

    const std::pair<const char*, const char*> bad[] = {
        {R"({"Preflight": -1})", "must be an object"},
        {R"({"Preflight": {"TruePeak": -1}})", "unknown pre-flight limit \"TruePeak\""},
        {R"({"Preflight": {"TruePeakMax": "-1"}})", "must be a number"},
        {R"({"Preflight": {"ClippedSamplesMax": 2.5}})", "whole number"},
        {R"({"Preflight": {"ClippedSamplesMax": -1}})", "whole number"},
        {R"({"Preflight": {"LoudnessMin": -5, "LoudnessMax": -9}})", "LoudnessMin lies above LoudnessMax"},
    };
    for (const auto& [text, reason] : bad)
    {
        settings = {};
        EXPECT_FALSE(Settings::parse(text, "config.json", settings, error)) << text;
        EXPECT_NE(error.find(reason), std::string::npos) << text << ": " << error;
        EXPECT_EQ(error.rfind("config.json", 0), 0u) << error;
    }
}

TEST_F(SettingsTest, FilesWrittenByHandAreReadOnlyWhenTheyAreFilesOfAReasonableSize)
{
    std::string text, error;
    const std::filesystem::path plain = folder_.path() / "plain.json";
    std::ofstream(plain) << "{}";
    EXPECT_TRUE(readUserFile(plain.string(), text, error)) << error;
    EXPECT_EQ(text, "{}");

    // A pipe nobody writes to would never end, /dev/zero neither: refused at once, not read.
    const std::filesystem::path pipe = folder_.path() / "pipe.json";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::filesystem::path large = folder_.path() / "large.json";
    std::ofstream(large) << std::string(kUserFileLimit + 1, ' ');
    const std::pair<std::string, std::string> refused[] = {
        {folder_.path().string(), "is not a file"},
        {pipe.string(), "is not a file"},
        {"/dev/zero", "is not a file"},
        {large.string(), "is too large"},
        {(folder_.path() / "missing.json").string(), "No such file"},
    };
    for (const auto& [path, message] : refused)
    {
        error.clear();
        EXPECT_FALSE(readUserFile(path, text, error)) << path;
        EXPECT_NE(error.find(path), std::string::npos) << error;
        EXPECT_NE(error.find(message), std::string::npos) << path << " -> " << error;
    }

    // The configuration and a language file go through it.
    std::filesystem::create_directories(std::filesystem::path(Settings::filePath()).parent_path());
    ASSERT_EQ(mkfifo(Settings::filePath().c_str(), 0600), 0);
    Settings settings;
    EXPECT_FALSE(Settings::load(settings, error));
    EXPECT_NE(error.find("is not a file"), std::string::npos) << error;
    EXPECT_FALSE(LanguageFile::loadFrom(pipe.string(), error));
    EXPECT_NE(error.find("the language file: " + pipe.string() + " is not a file"), std::string::npos) << error;
}
