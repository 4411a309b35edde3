#include "ScopedEnvironment.h"

#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace KVX;

namespace {

class LocaleTest : public testing::Test
{
protected:
    LocaleTest()
    {
        for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"})
            saved_.push_back(std::make_unique<ScopedEnvironment>(name, nullptr));
    }
    ~LocaleTest() override { GetLocaleManager()->setLanguage(nullptr); }

    // The language for the given environment; null leaves a variable unset.
    std::string languageWith(const char* language, const char* all, const char* messages, const char* lang)
    {
        const char* values[] = {language, all, messages, lang};
        for (size_t i = 0; i < saved_.size(); ++i)
            saved_[i]->set(values[i]);
        return currentLanguage();
    }
    std::string currentLanguage()
    {
        char buffer[8] = "unset";
        EXPECT_EQ(GetLocaleManager()->getLanguage(buffer, sizeof(buffer)), kResultOk);
        return buffer;
    }

private:
    std::vector<std::unique_ptr<ScopedEnvironment>> saved_;
};

} // namespace

TEST_F(LocaleTest, TheLanguageComesFromTheEnvironmentAsMessageCataloguesChooseIt)
{
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, nullptr), "en") << "nothing set";
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "de_DE.UTF-8"), "de");
    EXPECT_EQ(languageWith(nullptr, nullptr, "it_IT.UTF-8", "fr_FR"), "it") << "LC_MESSAGES before LANG";
    EXPECT_EQ(languageWith(nullptr, "es_ES", "it_IT", "fr_FR"), "es") << "LC_ALL before both";
    EXPECT_EQ(languageWith(nullptr, "", "", "fr_FR"), "fr") << "empty values count as unset";
    EXPECT_EQ(languageWith("pt_BR:de", nullptr, nullptr, "de_DE.UTF-8"), "pt") << "LANGUAGE first";
    EXPECT_EQ(languageWith(":C:1a:sv:de", nullptr, nullptr, "de_DE"), "sv") << "unusable entries skipped";
    EXPECT_EQ(languageWith("::", nullptr, nullptr, "nl_NL"), "nl");
    EXPECT_EQ(languageWith("de", "C", nullptr, "fr_FR"), "en") << "the C locale ignores LANGUAGE";
    EXPECT_EQ(languageWith("de", nullptr, nullptr, nullptr), "en") << "so does no locale";
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "POSIX"), "en");
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "C.UTF-8"), "en");
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "fil_PH.UTF-8"), "fil") << "three letters";
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "de@euro"), "de");
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "DE_de"), "de") << "lower case";
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "deutsch"), "en") << "not a language code";
    EXPECT_EQ(languageWith(nullptr, nullptr, nullptr, "d3_DE"), "en");
}

TEST_F(LocaleTest, TheHostsSettingWinsUntilItIsCleared)
{
    languageWith(nullptr, nullptr, nullptr, "de_DE.UTF-8");
    ASSERT_EQ(GetLocaleManager()->setLanguage("FR"), kResultOk);
    EXPECT_EQ(currentLanguage(), "fr");
    for (const char* bad : {"f", "fren", "f1", "de_DE", "d\u00e9"})
    {
        EXPECT_EQ(GetLocaleManager()->setLanguage(bad), kInvalidArgument) << bad;
        EXPECT_EQ(currentLanguage(), "fr");
    }
    ASSERT_EQ(GetLocaleManager()->setLanguage(""), kResultOk);
    EXPECT_EQ(currentLanguage(), "de");
    ASSERT_EQ(GetLocaleManager()->setLanguage("ast"), kResultOk);
    EXPECT_EQ(currentLanguage(), "ast");
    ASSERT_EQ(GetLocaleManager()->setLanguage(nullptr), kResultOk);
    EXPECT_EQ(currentLanguage(), "de");

    char small[3] = "xy";
    EXPECT_EQ(GetLocaleManager()->getLanguage(small, sizeof(small)), kInvalidArgument);
    EXPECT_STREQ(small, "xy");
    EXPECT_EQ(GetLocaleManager()->getLanguage(nullptr, 8), kInvalidArgument);
}
