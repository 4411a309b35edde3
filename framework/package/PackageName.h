#pragma once

#include <string>
#include <string_view>

namespace KVX {

/// The names of a package's folders and files: UTF-8 in memory, UTF-16LE in the directory.
class PackageName
{
public:
    /// Whether `name` can name one folder or file: valid UTF-8, not empty, not "." or "..",
    /// no "/" and no control character, and at most the format's length in UTF-16 units.
    static bool isValid(std::string_view name);

    /// Converts UTF-8 to UTF-16. False for malformed UTF-8 (overlong forms, surrogates, values
    /// beyond U+10FFFF, truncated sequences).
    static bool toUtf16(std::string_view utf8, std::u16string& utf16);
    /// Converts UTF-16 to UTF-8. False for an unpaired surrogate.
    static bool toUtf8(std::u16string_view utf16, std::string& utf8);
};

} // namespace KVX
