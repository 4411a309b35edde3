#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Host {

/// The columns that UTF-8 `text` takes on a terminal: a wide character (CJK, most emoji) counts
/// two, a combining mark none, any other printable character one; a byte that is no part of a
/// valid character counts one, as a terminal shows it as one replacement mark.
size_t displayWidth(std::string_view text);

/// `text` with every character that a terminal acts on instead of showing it (the escape that
/// starts a control sequence, a bell, a backspace, a line break) turned into U+FFFD, and bytes
/// that are no UTF-8 too: a name from a file's tags or from the service cannot recolour, retitle
/// or rewrite the terminal, nor break a table's line. With `keepLineBreaks`, line breaks and tabs
/// stay (for messages of several lines).
std::string printable(std::string_view text, bool keepLineBreaks = false);

/// `text` (made printable) cut to at most `width` columns (only whole characters, a combining mark staying with its
/// letter) and padded with spaces to exactly `width` columns.
std::string fitToWidth(std::string_view text, size_t width);

/// `text` (made printable) padded with spaces to at least `width` columns; never cut.
std::string padToWidth(std::string_view text, size_t width);

} // namespace Host
