#include "Arguments.h"

#include "Refusal.h"

#include <rapidjson/error/en.h>

#include <algorithm>
#include <set>

namespace SorvelSandbox
{

namespace
{

std::string quoted(std::string_view name)
{
    return "\"" + std::string(name) + "\"";
}

} // namespace

std::optional<int64_t> parseId(std::string_view text)
{
    if (text.empty() || text.size() > 18 || text.front() == '0' ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    int64_t value = 0;
    for (char c : text)
        value = value * 10 + (c - '0');
    return value;
}

Arguments Arguments::fromJson(std::string_view body)
{
    Arguments arguments;
    arguments.document = std::make_unique<rapidjson::Document>();
    rapidjson::Document& document = *arguments.document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(body.data(), body.size());
    if (document.HasParseError())
        throw Refusal{400, "the body is not valid JSON (at byte " + std::to_string(document.GetErrorOffset()) +
                               ": " + rapidjson::GetParseError_En(document.GetParseError()) + ")"};
    if (!document.IsObject())
        throw Refusal{400, "the body must be a JSON object"};
    std::set<std::string> seen;
    for (auto& entry : document.GetObject())
        if (!seen.insert(entry.name.GetString()).second)
            throw Refusal{400, "the member " + quoted(entry.name.GetString()) + " appears twice"};
    return arguments;
}

Arguments Arguments::fromQuery(const std::vector<std::pair<std::string, std::string>>& parameters)
{
    Arguments arguments;
    std::set<std::string> seen;
    for (const auto& [name, value] : parameters)
        if (!seen.insert(name).second)
            throw Refusal{400, "the parameter " + quoted(name) + " appears more than once"};
    arguments.query = parameters;
    return arguments;
}

const rapidjson::Value* Arguments::member(std::string_view name) const
{
    rapidjson::Value key(rapidjson::StringRef(name.data(), static_cast<rapidjson::SizeType>(name.size())));
    auto found = document->FindMember(key);
    return found == document->MemberEnd() ? nullptr : &found->value;
}

bool Arguments::has(std::string_view name) const
{
    if (document)
        return member(name) != nullptr;
    return std::any_of(query.begin(), query.end(), [&](auto& entry) { return entry.first == name; });
}

std::vector<std::string> Arguments::names() const
{
    std::vector<std::string> result;
    if (document)
        for (auto& entry : document->GetObject())
            result.emplace_back(entry.name.GetString(), entry.name.GetStringLength());
    else
        for (const auto& entry : query)
            result.push_back(entry.first);
    return result;
}

std::string Arguments::text(std::string_view name) const
{
    if (document)
    {
        const rapidjson::Value* value = member(name);
        if (value == nullptr)
            throw Refusal{400, "the member " + quoted(name) + " is missing"};
        if (!value->IsString())
            throw Refusal{400, "the member " + quoted(name) + " must be a string"};
        return std::string(value->GetString(), value->GetStringLength());
    }
    for (const auto& entry : query)
        if (entry.first == name)
            return entry.second;
    throw Refusal{400, "the parameter " + quoted(name) + " is missing"};
}

std::optional<int64_t> Arguments::integer(std::string_view name) const
{
    if (document)
    {
        const rapidjson::Value* value = member(name);
        if (value == nullptr)
            return std::nullopt;
        if (!value->IsInt64())
            throw Refusal{400, "the member " + quoted(name) + " must be an integer number"};
        return value->GetInt64();
    }
    if (!has(name))
        return std::nullopt;
    const std::string digits = text(name);
    if (digits == "0")
        return 0;
    std::optional<int64_t> value = parseId(digits);
    if (!value)
        throw Refusal{400, "the parameter " + quoted(name) + " must be a decimal number"};
    return value;
}

void Arguments::allowOnly(std::initializer_list<std::string_view> allowed) const
{
    for (const std::string& name : names())
        if (std::find(allowed.begin(), allowed.end(), name) == allowed.end())
            throw Refusal{400, std::string(document ? "the member " : "the parameter ") + quoted(name) +
                                   " is not expected in this request"};
}

void Arguments::requireScalars() const
{
    if (!document)
        return;
    for (auto& entry : document->GetObject())
        if (entry.value.IsObject() || entry.value.IsArray())
            throw Refusal{400, "the member " + quoted(entry.name.GetString()) + " must be a plain value"};
}

} // namespace SorvelSandbox
