#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

/// The columns that UTF-8 `text` takes on a terminal: a wide character (CJK, most emoji) counts
/// two, a combining mark none, any other printable character one; a byte that is no part of a
/// valid character counts one, as a terminal shows it as one replacement mark.
size_t displayWidth(std::string_view text);

/// `text` cut to at most `width` columns (only whole characters, a combining mark staying with its
/// letter) and padded with spaces to exactly `width` columns.
std::string fitToWidth(std::string_view text, size_t width);

/// `text` padded with spaces to at least `width` columns; never cut.
std::string padToWidth(std::string_view text, size_t width);

} // namespace Host
