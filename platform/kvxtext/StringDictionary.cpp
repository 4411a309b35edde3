#include "framework/services/TextServices.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

using namespace KVX;

// The translations a host loaded, by scope and English text. Lookups come from any thread (an
// alert may be shown from a worker), so the table is guarded; it is small and read rarely enough
// that one lock serves.

namespace {

std::mutex dictionaryMutex;
std::map<std::pair<std::string, std::string>, std::string, std::less<>> dictionary;

} // namespace

tresult SetLocalizedText(const char* scope, const char* key, const char* translation)
{
    if (!scope || !*scope || !key || !*key)
        return kInvalidArgument;
    try
    {
        std::lock_guard lock(dictionaryMutex);
        if (!translation || !*translation)
            dictionary.erase({scope, key});
        else
            dictionary[{scope, key}] = translation;
        return kResultOk;
    }
    catch (...)
    {
        return kUnexpected;
    }
}

uint32 GetLocalizedText(const char* scope, const char* key, char* buffer, uint32 size)
{
    if (!scope || !key)
        return 0;
    try
    {
        std::lock_guard lock(dictionaryMutex);
        const auto found = dictionary.find(std::pair<std::string, std::string>(scope, key));
        if (found == dictionary.end())
            return 0;
        const std::string& text = found->second;
        if (buffer && size > 0)
        {
            const size_t copied = std::min<size_t>(text.size(), size - 1);
            std::memcpy(buffer, text.data(), copied);
            buffer[copied] = '\0';
        }
        return static_cast<uint32>(text.size());
    }
    catch (...)
    {
        return 0;
    }
}

void ClearLocalizedTexts(const char* scope)
{
    std::lock_guard lock(dictionaryMutex);
    if (!scope)
        dictionary.clear();
    else
        std::erase_if(dictionary, [scope](const auto& entry) { return entry.first.first == scope; });
}
