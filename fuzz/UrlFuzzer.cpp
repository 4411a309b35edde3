// Parses the input as an address. One that parses writes a text that parses to the same text.
#include "framework/data/Url.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KVX::Url url;
    if (!url.setFromDisplayString(std::string_view(reinterpret_cast<const char*>(data), size)))
        return 0;
    const std::string text = url.toDisplayString().toUtf8();
    KVX::Url again;
    if (!again.setFromDisplayString(text) || again.toDisplayString().toUtf8() != text)
        std::abort();
    url.fileName();
    url.extension();
    url.queryString();
    url.appendPath("segment");
    url.toDisplayString();
    return 0;
}
