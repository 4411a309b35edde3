#include "framework/data/Json.h"

#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"

#include <string>

namespace KVX {

bool Json::load(Attributes& result, IStream& stream)
{
    std::string bytes;
    char buffer[16384];
    for (;;)
    {
        int64 got = stream.read(buffer, sizeof buffer);
        if (got < 0)
        {
            result.clear();
            return false;
        }
        if (got == 0)
            break;
        bytes.append(buffer, static_cast<size_t>(got));
    }
    return load(result, bytes);
}

bool Json::load(Attributes& result, std::string_view bytes)
{
    result.clear();
    Variant root;
    if (JsonParse(bytes.data(), bytes.size(), &root) != kResultOk)
        return false;
    Attributes* parsed = root.asObject<Attributes>();
    if (!parsed)
        return false;
    result = *parsed;
    return true;
}

bool Json::save(IStream& stream, const Attributes& attributes)
{
    Variant value(const_cast<Attributes*>(&attributes));
    return JsonStringify(&value, &stream) == kResultOk;
}

std::string Json::toText(const Attributes& attributes)
{
    auto stream = makeRef<MemoryStream>();
    if (!save(*stream, attributes))
        return {};
    return std::string(stream->view());
}

} // namespace KVX
