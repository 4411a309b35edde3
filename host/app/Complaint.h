#pragma once

#include <cstdarg>
#include <string>

namespace Host {

/// Says on standard error, as "sorvel: <text>" and a line break, why something cannot go on, and
/// keeps the sentence: a command whose output is JSON gives the last one as the reason of its
/// exit code. printf-style; a line break at the end of the format is not needed.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);
/// The last sentence said, without the prefix; empty when none was.
const std::string& lastComplaint();

/// The text of printf-style `format` with `arguments`, whatever its length.
std::string formatText(const char* format, va_list arguments);

} // namespace Host
