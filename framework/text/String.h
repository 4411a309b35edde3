#pragma once

#include "framework/text/CString.h"

#include <compare>
#include <string>
#include <string_view>

namespace KVX {

/// Unicode text, stored as UTF-8. Every operation that counts, cuts or trims works on whole code
/// points, never inside a multi-byte sequence. Text built with fromUtf8() is always valid UTF-8:
/// malformed input bytes become U+FFFD.
class String
{
public:
    String() = default;
    /// From UTF-8 text in the source or from a trusted producer; invalid bytes are replaced.
    String(const char* utf8) : String(fromUtf8(utf8 ? std::string_view(utf8) : std::string_view())) {}
    String(std::string_view utf8) : String(fromUtf8(utf8)) {}

    static String fromUtf8(std::string_view bytes);
    /// Takes bytes that a reader has already checked to be UTF-8 as they are, without checking
    /// them again. For text that is not known to be valid, fromUtf8.
    static String fromValidatedUtf8(std::string_view utf8) { return String(Raw{}, std::string(utf8)); }
    /// Each byte is one code point from U+0000 to U+00FF.
    static String fromLatin1(std::string_view bytes);
    static String fromCodePoint(char32_t codePoint);

    const std::string& toUtf8() const { return utf8_; }
    CString toCString() const { return CString(utf8_); }
    /// Code points above 127 become '?'.
    CString toAscii() const;

    bool isEmpty() const { return utf8_.empty(); }
    /// The number of code points.
    size_t length() const;
    size_t byteLength() const { return utf8_.size(); }

    /// Without white space (Unicode White_Space, including no-break spaces) at both ends.
    String trimmed() const;
    /// `count` code points from code point `start`; clipped to the text.
    String substring(size_t start, size_t count = npos) const;
    /// Drops the first `count` code points.
    void removeFirst(size_t count = 1);

    /// The code-point index of `part`, or npos. Without case sensitivity, ASCII letters match
    /// either case.
    size_t indexOf(const String& part, bool caseSensitive = true) const;
    bool contains(const String& part, bool caseSensitive = true) const { return indexOf(part, caseSensitive) != npos; }
    bool startsWith(const String& part) const { return std::string_view(utf8_).starts_with(part.utf8_); }
    bool endsWith(const String& part) const { return std::string_view(utf8_).ends_with(part.utf8_); }

    String& append(const String& other)
    {
        utf8_ += other.utf8_;
        return *this;
    }
    String& operator+=(const String& other) { return append(other); }
    friend String operator+(String a, const String& b) { return a.append(b); }

    bool operator==(const String& other) const = default;
    bool operator==(const char* utf8) const { return utf8_ == (utf8 ? utf8 : ""); }
    std::strong_ordering operator<=>(const String& other) const { return utf8_ <=> other.utf8_; }

    static constexpr size_t npos = static_cast<size_t>(-1);

private:
    struct Raw
    {
    };
    String(Raw, std::string utf8) : utf8_(std::move(utf8)) {}

    std::string utf8_;
};

} // namespace KVX
