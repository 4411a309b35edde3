#include "framework/package/PackageName.h"

#include "framework/package/PackageFormat.h"
#include "framework/text/String.h"

namespace KVX {

bool PackageName::isValid(std::string_view name)
{
    if (name.empty() || name == "." || name == "..")
        return false;
    for (char c : name)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F || c == '/')
            return false;
    std::u16string units;
    return toUtf16(name, units) && units.size() <= PackageFormat::kMaxNameUnits;
}

bool PackageName::toUtf16(std::string_view utf8, std::u16string& utf16)
{
    utf16.clear();
    for (size_t i = 0; i < utf8.size();)
    {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        size_t length = 0;
        char32_t code = 0;
        if (lead < 0x80)
        {
            length = 1;
            code = lead;
        }
        else if ((lead & 0xE0) == 0xC0)
        {
            length = 2;
            code = lead & 0x1F;
        }
        else if ((lead & 0xF0) == 0xE0)
        {
            length = 3;
            code = lead & 0x0F;
        }
        else if ((lead & 0xF8) == 0xF0)
        {
            length = 4;
            code = lead & 0x07;
        }
        else
            return false;
        if (utf8.size() - i < length)
            return false;
        for (size_t k = 1; k < length; ++k)
        {
            const auto next = static_cast<unsigned char>(utf8[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (next & 0x3F);
        }
        static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        if (code >= 0x10000)
        {
            code -= 0x10000;
            utf16 += static_cast<char16_t>(0xD800 + (code >> 10));
            utf16 += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        }
        else
            utf16 += static_cast<char16_t>(code);
        i += length;
    }
    return true;
}

bool PackageName::toUtf8(std::u16string_view utf16, std::string& utf8)
{
    utf8.clear();
    for (size_t i = 0; i < utf16.size(); ++i)
    {
        char32_t code = utf16[i];
        if (code >= 0xDC00 && code <= 0xDFFF)
            return false;
        if (code >= 0xD800 && code <= 0xDBFF)
        {
            if (i + 1 >= utf16.size() || utf16[i + 1] < 0xDC00 || utf16[i + 1] > 0xDFFF)
                return false;
            code = 0x10000 + ((code - 0xD800) << 10) + (utf16[++i] - 0xDC00);
        }
        utf8 += String::fromCodePoint(code).toUtf8();
    }
    return true;
}

} // namespace KVX
