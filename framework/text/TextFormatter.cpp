#include "framework/text/TextFormatter.h"

#include "framework/text/NumberFormat.h"

namespace KVX {

String TextFormatter::format(const String& pattern, std::initializer_list<Variant> arguments)
{
    return format(pattern, arguments.begin(), arguments.size());
}

String TextFormatter::format(const String& pattern, const Variant* arguments, size_t count)
{
    const std::string& in = pattern.toUtf8();
    std::string out;
    out.reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i)
    {
        if (in[i] != '%')
        {
            out += in[i];
            continue;
        }
        if (i + 1 < in.size() && in[i + 1] == '%')
        {
            out += '%';
            ++i;
            continue;
        }
        // "%(" digits [ ":" digits ] ")"
        size_t pos = i + 1;
        auto readNumber = [&](int& value) {
            size_t start = pos;
            value = 0;
            while (pos < in.size() && in[pos] >= '0' && in[pos] <= '9' && pos - start < 4)
                value = value * 10 + (in[pos++] - '0');
            return pos > start;
        };
        int index = 0, decimals = -1;
        bool ok = pos < in.size() && in[pos] == '(';
        if (ok)
        {
            ++pos;
            ok = readNumber(index);
        }
        if (ok && pos < in.size() && in[pos] == ':')
        {
            ++pos;
            ok = readNumber(decimals);
        }
        ok = ok && pos < in.size() && in[pos] == ')' && index >= 1;
        if (!ok)
        {
            out += '%';
            continue;
        }
        if (static_cast<size_t>(index) <= count)
        {
            const Variant& argument = arguments[index - 1];
            if (decimals >= 0 && argument.isNumeric())
                out += NumberFormat::formatFixed(argument.asDouble(), decimals).view();
            else
                out += argument.toString().toUtf8();
        }
        i = pos;
    }
    return String::fromUtf8(out);
}

} // namespace KVX
