#pragma once

#include <string>

namespace Host {

/// The most a file the user writes by hand (the configuration, a language file) may hold: far
/// more than any of them needs, and a bound on what a wrong path (a disk image, /dev/zero) costs.
constexpr std::size_t kUserFileLimit = 1 << 20;

/// Reads the file the user named or keeps at `path` into `text`. False, with a sentence that names
/// the file in `error`, when it is not a regular file (a folder, a device, a pipe that would
/// never end), is larger than kUserFileLimit, or cannot be read.
bool readUserFile(const std::string& path, std::string& text, std::string& error);

} // namespace Host
