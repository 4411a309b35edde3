#include "plugin/shell/Texts.h"

#include "framework/services/TextServices.h"

#include <string>

namespace Sorvel {

KVX::String Texts::translate(const KVX::String& english)
{
    const std::string key = english.toUtf8();
    char buffer[512];
    const KVX::uint32 length = GetLocalizedText(kScope, key.c_str(), buffer, sizeof buffer);
    if (length == 0)
        return table().translate(english);
    if (length < sizeof buffer)
        return KVX::String::fromUtf8(std::string_view(buffer, length));
    std::string longer(length + 1, '\0');
    GetLocalizedText(kScope, key.c_str(), longer.data(), length + 1);
    longer.resize(length);
    return KVX::String::fromUtf8(longer);
}

void Texts::registerAll()
{
    for (const char* text : Engine::TextKeys::kAll)
        table().registerText(text);
}

} // namespace Sorvel
