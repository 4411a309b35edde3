#include "framework/text/String.h"

namespace KVX {
namespace {

void appendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80)
        out += static_cast<char>(c);
    else if (c < 0x800)
    {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    else if (c < 0x10000)
    {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    else
    {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

/// Decodes one code point at `pos` of valid or invalid UTF-8. Returns the code point (U+FFFD for
/// a malformed sequence) and advances `pos` past it (one byte for a malformed sequence).
char32_t decode(std::string_view s, size_t& pos)
{
    auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
    unsigned char lead = byte(pos);
    if (lead < 0x80)
    {
        ++pos;
        return lead;
    }
    int extra;
    char32_t c, minimum;
    if ((lead & 0xE0) == 0xC0)
        extra = 1, c = lead & 0x1F, minimum = 0x80;
    else if ((lead & 0xF0) == 0xE0)
        extra = 2, c = lead & 0x0F, minimum = 0x800;
    else if ((lead & 0xF8) == 0xF0)
        extra = 3, c = lead & 0x07, minimum = 0x10000;
    else
    {
        ++pos;
        return 0xFFFD;
    }
    if (pos + extra >= s.size())
    {
        ++pos;
        return 0xFFFD;
    }
    for (int i = 1; i <= extra; ++i)
    {
        unsigned char next = byte(pos + i);
        if ((next & 0xC0) != 0x80)
        {
            ++pos;
            return 0xFFFD;
        }
        c = (c << 6) | (next & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
    {
        ++pos;
        return 0xFFFD;
    }
    pos += extra + 1;
    return c;
}

/// Byte offset of code point `index` in valid UTF-8 (the size when past the end).
size_t byteOffset(const std::string& s, size_t index)
{
    size_t pos = 0;
    for (size_t i = 0; i < index && pos < s.size(); ++i)
        decode(s, pos);
    return pos;
}

bool isWhiteSpace(char32_t c)
{
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

char asciiLower(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

} // namespace

String String::fromUtf8(std::string_view bytes)
{
    std::string out;
    out.reserve(bytes.size());
    for (size_t pos = 0; pos < bytes.size();)
    {
        size_t start = pos;
        char32_t c = decode(bytes, pos);
        if (c == 0xFFFD && pos - start == 1 && static_cast<unsigned char>(bytes[start]) >= 0x80)
            appendUtf8(out, 0xFFFD);
        else
            out.append(bytes.substr(start, pos - start));
    }
    return String(Raw{}, std::move(out));
}

String String::fromLatin1(std::string_view bytes)
{
    std::string out;
    for (unsigned char c : bytes)
        appendUtf8(out, c);
    return String(Raw{}, std::move(out));
}

String String::fromCodePoint(char32_t codePoint)
{
    std::string out;
    if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
        codePoint = 0xFFFD;
    appendUtf8(out, codePoint);
    return String(Raw{}, std::move(out));
}

CString String::toAscii() const
{
    std::string out;
    for (size_t pos = 0; pos < utf8_.size();)
    {
        char32_t c = decode(utf8_, pos);
        out += c < 0x80 ? static_cast<char>(c) : '?';
    }
    return CString(std::move(out));
}

size_t String::length() const
{
    size_t count = 0;
    for (size_t pos = 0; pos < utf8_.size(); ++count)
        decode(utf8_, pos);
    return count;
}

String String::trimmed() const
{
    size_t begin = 0, end = 0;
    bool seenText = false;
    for (size_t pos = 0; pos < utf8_.size();)
    {
        size_t start = pos;
        char32_t c = decode(utf8_, pos);
        if (!isWhiteSpace(c))
        {
            if (!seenText)
                begin = start, seenText = true;
            end = pos;
        }
    }
    return seenText ? String(Raw{}, utf8_.substr(begin, end - begin)) : String();
}

String String::substring(size_t start, size_t count) const
{
    size_t begin = byteOffset(utf8_, start);
    size_t pos = begin;
    for (size_t i = 0; i < count && pos < utf8_.size(); ++i)
        decode(utf8_, pos);
    return String(Raw{}, utf8_.substr(begin, pos - begin));
}

void String::removeFirst(size_t count)
{
    utf8_.erase(0, byteOffset(utf8_, count));
}

size_t String::indexOf(const String& part, bool caseSensitive) const
{
    size_t byte;
    if (caseSensitive)
        byte = utf8_.find(part.utf8_);
    else
    {
        std::string haystack = utf8_, needle = part.utf8_;
        for (char& c : haystack)
            c = asciiLower(c);
        for (char& c : needle)
            c = asciiLower(c);
        byte = haystack.find(needle);
    }
    if (byte == std::string::npos)
        return npos;
    size_t index = 0;
    for (size_t pos = 0; pos < byte; ++index)
        decode(utf8_, pos);
    return index;
}

} // namespace KVX
