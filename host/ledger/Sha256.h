#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace Host {

/// The lower-case hexadecimal SHA-256 of the bytes of `file`, read in pieces of 64 KiB so that a
/// file of any size costs the same memory. False with a sentence in `error` when the file cannot be
/// opened or read to its end.
bool sha256OfFile(const std::filesystem::path& file, std::string& digest, std::string& error);

/// The lower-case hexadecimal SHA-256 of metadata in its canonical form: one line "key=value" per
/// entry, ended by a line feed, in the byte order of the keys (the map's order). A backslash and a
/// line feed in a key or a value are written as "\\" and "\n", and "=" in a key as "\=", so that
/// two different sets of entries never give the same text. Empty in the unlikely case that
/// libcrypto cannot compute it, which matches no recorded digest (the file is then sent).
std::string sha256OfMetadata(const std::map<std::string, std::string>& fields);

} // namespace Host
