// Reads the input as a JSON document, as replies of the service are read. A document that loads
// must write back to a text that loads to the same text again: what the writer makes, the reader
// takes unchanged.
#include "framework/data/Attributes.h"
#include "framework/data/Json.h"
#include "framework/data/Variant.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    KVX::Variant value;
    KVX::Json::parse(bytes.data(), bytes.size(), value);

    KVX::Attributes first;
    if (!KVX::Json::load(first, bytes))
        return 0;
    const std::string text = KVX::Json::toText(first);
    KVX::Attributes second;
    if (!KVX::Json::load(second, text) || KVX::Json::toText(second) != text)
        std::abort();
    return 0;
}
