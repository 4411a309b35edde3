#include "host/app/Complaint.h"
#include "host/terminal/TextWidth.h"

#include <cstdarg>
#include <cstdio>

namespace Host {

namespace {

std::string last; // the user-interface thread says everything

} // namespace

std::string formatText(const char* format, va_list arguments)
{
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0)
        std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

void complain(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatText(format, arguments);
    va_end(arguments);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    text = printable(text, true); // the service's reasons among them: nothing the terminal acts on
    std::fprintf(stderr, "sorvel: %s\n", text.c_str());
    last = text;
}

const std::string& lastComplaint()
{
    return last;
}

} // namespace Host
