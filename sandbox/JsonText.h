#pragma once

#include <rapidjson/rapidjson.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace SorvelSandbox
{

// Small helpers for writing JSON members with RapidJSON's writers, which take strings as pointer
// and length.
template <typename Writer> void writeText(Writer& out, std::string_view text)
{
    out.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

template <typename Writer> void member(Writer& out, const char* name, std::string_view text)
{
    out.Key(name);
    writeText(out, text);
}

template <typename Writer> void member(Writer& out, const char* name, const std::string& text)
{
    member(out, name, std::string_view(text));
}

template <typename Writer> void member(Writer& out, const char* name, const char* text)
{
    member(out, name, std::string_view(text));
}

template <typename Writer> void member(Writer& out, const char* name, int64_t number)
{
    out.Key(name);
    out.Int64(number);
}

template <typename Writer> void member(Writer& out, const char* name, int number)
{
    out.Key(name);
    out.Int(number);
}

template <typename Writer> void member(Writer& out, const char* name, uint64_t number)
{
    out.Key(name);
    out.Uint64(number);
}

template <typename Writer> void member(Writer& out, const char* name, double number)
{
    out.Key(name);
    out.Double(number);
}

} // namespace SorvelSandbox
