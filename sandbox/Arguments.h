#pragma once

#include <rapidjson/document.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace SorvelSandbox
{

// The named arguments of one API request: the members of a JSON body object, or the query
// parameters of a GET. Reads are strict and throw a Refusal with status 400 that names the
// argument: a missing argument, a JSON member of the wrong type, a repeated name.
class Arguments
{
public:
    // Parses a JSON body; it must be one object whose member names are all different.
    static Arguments fromJson(std::string_view body);
    // Query parameters, decoded, in any order; a name may appear only once.
    static Arguments fromQuery(const std::vector<std::pair<std::string, std::string>>& parameters);

    bool isJson() const { return document != nullptr; }
    bool has(std::string_view name) const;
    // Names in the order they were received (for a query, in the order given).
    std::vector<std::string> names() const;

    // A required text argument. In JSON it must be a string.
    std::string text(std::string_view name) const;
    // An optional integer argument: nothing when absent. In JSON it must be an integer number, in a
    // query a decimal number.
    std::optional<int64_t> integer(std::string_view name) const;

    // Refuses every argument whose name is not in the list.
    void allowOnly(std::initializer_list<std::string_view> allowed) const;
    // Refuses JSON members whose values are objects or arrays.
    void requireScalars() const;

private:
    Arguments() = default;
    const rapidjson::Value* member(std::string_view name) const;

    std::unique_ptr<rapidjson::Document> document;
    std::vector<std::pair<std::string, std::string>> query;
};

// Reads the decimal text of a positive identifier, as ids travel in paths and string members.
std::optional<int64_t> parseId(std::string_view text);

} // namespace SorvelSandbox
