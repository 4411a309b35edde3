#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace Host {

/// Says on standard error, as "sorvel: <text>" and a line break, why something cannot go on, and
/// keeps the sentence: a command whose output is JSON gives the last one as the reason of its
/// exit code. printf-style; a line break at the end of the format is not needed.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);
/// The last sentence said, without the prefix; empty when none was.
const std::string& lastComplaint();

/// Hands what was printed on `stream` to the system now (a JSON line, a batch's report), and
/// keeps the reason of the first failure to write standard output for outputWritten().
void flushOutput(std::FILE* stream);
/// Whether everything printed on standard output reached it; complains why not. A full disk or a
/// file closed under the program would otherwise lose a command's result with exit code 0. A
/// reader that went away (`sorvel history | head -1`) chose to stop reading: that is no failure.
bool outputWritten();

/// The text of printf-style `format` with `arguments`, whatever its length.
std::string formatText(const char* format, va_list arguments);

} // namespace Host
