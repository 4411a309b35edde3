#pragma once

#include <algorithm>
#include <string_view>

namespace KVX::System
{

/// Comparison of names whose letter case carries no meaning (URL schemes, host names, file name
/// extensions): ASCII only, whatever the locale.
inline bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) { return lower(x) == lower(y); });
}

} // namespace KVX::System
