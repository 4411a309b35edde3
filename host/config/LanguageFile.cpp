#include "host/config/LanguageFile.h"

#include "framework/data/Attributes.h"
#include "framework/data/Json.h"
#include "framework/interfaces/TextKeys.h"
#include "framework/services/ILocaleManager.h"
#include "framework/services/SystemServices.h"
#include "framework/services/TextServices.h"
#include "host/config/JsonSyntax.h"
#include "host/config/UserFile.h"
#include "host/config/UserFolder.h"

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

namespace Host {

using namespace KVX;

bool LanguageFile::load(std::string& error)
{
    if (const char* named = std::getenv("SORVEL_LANGUAGE_FILE"); named && *named)
        return loadFrom(named, error);
    char language[16] = {};
    ILocaleManager* locale = GetLocaleManager();
    if (!locale || locale->getLanguage(language, sizeof language) != kResultOk || std::string(language) == "en")
        return true;
    const std::string path =
        (userFolder("XDG_CONFIG_HOME", ".config") / "sorvel" / "language" / (std::string(language) + ".json")).string();
    struct stat status = {};
    // No translation of this language: the English texts. One that cannot be read is said, not
    // passed over.
    if (::lstat(path.c_str(), &status) != 0 && errno == ENOENT)
        return true;
    return loadFrom(path, error);
}

bool LanguageFile::loadFrom(const std::string& path, std::string& error)
{
    std::string text;
    if (!readUserFile(path, text, error))
    {
        error = "the language file: " + error;
        return false;
    }
    Attributes scopes;
    if (!Json::load(scopes, text))
    {
        const std::string syntax = jsonSyntaxError(text);
        error = "the language file " + path + (syntax.empty() ? " is not a JSON object" : " is not valid JSON: " + syntax);
        return false;
    }
    for (const Attributes::Member& scope : scopes)
    {
        const Attributes* texts = scope.value.asObject<Attributes>();
        if (!texts)
        {
            error = "the language file " + path + ": \"" + std::string(scope.name.view()) +
                    "\" must be an object of translations";
            return false;
        }
        const std::string scopeName(scope.name.view());
        for (const Attributes::Member& entry : *texts)
        {
            if (entry.value.type() != Variant::kString)
            {
                error = "the language file " + path + ": the translation of \"" + std::string(entry.name.view()) +
                        "\" must be a text";
                return false;
            }
            SetLocalizedText(scopeName.c_str(), std::string(entry.name.view()).c_str(),
                             entry.value.asString().toUtf8().c_str());
        }
    }
    return true;
}

std::string LanguageFile::text(const char* key)
{
    char buffer[512];
    const uint32 length = GetLocalizedText(Engine::TextKeys::kScope, key, buffer, sizeof buffer);
    if (length == 0)
        return key;
    if (length < sizeof buffer)
        return std::string(buffer, length);
    std::string longer(length + 1, '\0');
    GetLocalizedText(Engine::TextKeys::kScope, key, longer.data(), length + 1);
    longer.resize(length);
    return longer;
}

} // namespace Host
