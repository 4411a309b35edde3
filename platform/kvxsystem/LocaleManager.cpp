#include "platform/kvxsystem/LocaleManager.h"

#include <cstdlib>
#include <cstring>

namespace KVX::System {

KVX_DEFINE_CLASS(LocaleManager, Object, "LocaleManager")

tresult LocaleManager::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ILocaleManager)
    return Object::queryInterface(iid, object);
}

namespace {

constexpr const char* kDefaultLanguage = "en";

std::string_view environment(const char* name)
{
    const char* value = std::getenv(name);
    return value ? std::string_view(value) : std::string_view();
}

// No locale at all is the C locale too.
bool isPlainLocale(std::string_view locale)
{
    return locale.empty() || locale == "C" || locale == "POSIX" || locale.starts_with("C.");
}

} // namespace

std::string LocaleManager::languageOf(std::string_view locale)
{
    const std::string_view code = locale.substr(0, locale.find_first_of("_.@"));
    if (code.size() < 2 || code.size() > 3)
        return {};
    std::string language;
    for (char c : code)
    {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        else if (c < 'a' || c > 'z')
            return {};
        language += c;
    }
    return language;
}

std::string LocaleManager::languageFromEnvironment() const
{
    std::string_view locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (locale = environment(name); !locale.empty())
            break;
    if (isPlainLocale(locale))
        return kDefaultLanguage; // the C locale ignores LANGUAGE, as message catalogues do
    // LANGUAGE lists languages in order of preference, separated by colons.
    std::string_view preferences = environment("LANGUAGE");
    while (!preferences.empty())
    {
        const size_t colon = preferences.find(':');
        std::string language = languageOf(preferences.substr(0, colon));
        if (!language.empty())
            return language;
        preferences = colon == std::string_view::npos ? std::string_view() : preferences.substr(colon + 1);
    }
    std::string language = languageOf(locale);
    return language.empty() ? kDefaultLanguage : language;
}

tresult LocaleManager::getLanguage(char* buffer, uint32 bufferSize)
{
    if (!buffer || bufferSize < 4)
        return kInvalidArgument;
    std::string language;
    {
        std::lock_guard lock(mutex_);
        language = override_;
    }
    if (language.empty())
        language = languageFromEnvironment();
    std::memcpy(buffer, language.c_str(), language.size() + 1); // at most 3 letters and the end
    return kResultOk;
}

tresult LocaleManager::setLanguage(const char* language)
{
    std::string code;
    if (language && *language)
    {
        code = languageOf(language);
        if (code.empty() || code.size() != std::strlen(language))
            return kInvalidArgument;
    }
    std::lock_guard lock(mutex_);
    override_ = std::move(code);
    return kResultOk;
}

} // namespace KVX::System
