#include "host/terminal/TextWidth.h"

#include <clocale>
#include <cwchar>
#include <locale.h>

namespace Host {

namespace {

/// A UTF-8 character set for this thread while it lives, whatever locale the program runs in: the
/// C library's character widths are only known in a UTF-8 locale.
class Utf8Characters
{
public:
    Utf8Characters()
    {
        static const locale_t utf8 = [] {
            for (const char* name : {"C.UTF-8", "C.utf8", "en_US.UTF-8"})
                if (locale_t made = newlocale(LC_CTYPE_MASK, name, locale_t(0)))
                    return made;
            return locale_t(0);
        }();
        if (utf8)
            previous_ = uselocale(utf8);
    }
    ~Utf8Characters()
    {
        if (previous_)
            uselocale(previous_);
    }
    Utf8Characters(const Utf8Characters&) = delete;
    Utf8Characters& operator=(const Utf8Characters&) = delete;

private:
    locale_t previous_ = locale_t(0);
};

/// The mark a terminal shows for what is no character, U+FFFD.
constexpr wchar_t kReplacementCharacter = 0xFFFD;

/// Calls `each(bytes, columns, character)` for every character of `text` in order; a byte that
/// is no part of a valid character, and a NUL, come one by one as kReplacementCharacter.
template <typename Each>
void forEachCharacter(std::string_view text, Each each)
{
    Utf8Characters utf8;
    std::mbstate_t state{};
    size_t at = 0;
    while (at < text.size())
    {
        wchar_t character = 0;
        size_t length = std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
        int columns = 1;
        if (length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2) || length == 0)
        {
            state = std::mbstate_t{}; // not a character: one byte, shown as one mark
            length = 1;
            character = kReplacementCharacter;
        }
        else if (const int width = ::wcwidth(character); width >= 0)
            columns = width;
        each(text.substr(at, length), static_cast<size_t>(columns), character);
        at += length;
    }
}

} // namespace

size_t displayWidth(std::string_view text)
{
    size_t total = 0;
    forEachCharacter(text, [&](std::string_view, size_t columns, wchar_t) { total += columns; });
    return total;
}

std::string printable(std::string_view text, bool keepLineBreaks)
{
    std::string result;
    result.reserve(text.size());
    forEachCharacter(text, [&](std::string_view bytes, size_t, wchar_t character) {
        const bool control = character < 0x20 || (character >= 0x7F && character < 0xA0);
        if (character == kReplacementCharacter ||
            (control && !(keepLineBreaks && (character == L'\n' || character == L'\t'))))
            result.append("\xEF\xBF\xBD");
        else
            result.append(bytes);
    });
    return result;
}

std::string fitToWidth(std::string_view raw, size_t width)
{
    const std::string text = printable(raw);
    std::string result;
    size_t used = 0;
    bool full = false;
    forEachCharacter(text, [&](std::string_view bytes, size_t columns, wchar_t) {
        if (full || used + columns > width)
        {
            full = true;
            return;
        }
        result.append(bytes);
        used += columns;
    });
    result.append(width - used, ' ');
    return result;
}

std::string padToWidth(std::string_view raw, size_t width)
{
    std::string result = printable(raw);
    const size_t used = displayWidth(result);
    if (used < width)
        result.append(width - used, ' ');
    return result;
}

} // namespace Host
