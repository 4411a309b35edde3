#include "host/config/JsonSyntax.h"

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>

namespace Host {

std::string jsonSyntaxError(std::string_view text)
{
    rapidjson::Reader reader;
    rapidjson::BaseReaderHandler<> ignore;
    rapidjson::MemoryStream bytes(text.data(), text.size());
    const rapidjson::ParseResult result = reader.Parse<rapidjson::kParseValidateEncodingFlag>(bytes, ignore);
    if (result)
        return {};
    const size_t offset = std::min(result.Offset(), text.size());
    size_t line = 1, column = 1;
    for (size_t i = 0; i < offset; ++i)
        if (text[i] == '\n')
            ++line, column = 1;
        else if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) // a character, not a continuation byte
            ++column;
    return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
           rapidjson::GetParseError_En(result.Code());
}

} // namespace Host
