#pragma once

#include <algorithm>
#include <string_view>

namespace SorvelSandbox
{

// Comparisons of protocol text (header names, hexadecimal digests), where letter case carries no
// meaning: ASCII only, whatever the locale.
inline char lowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

inline bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

} // namespace SorvelSandbox
