#include "host/app/Complaint.h"
#include "host/terminal/TextWidth.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace Host {

namespace {

std::string last; // the user-interface thread says everything
int outputError = 0; ///< the first failure to write standard output, an errno value

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

void flushOutput(std::FILE* stream)
{
    errno = 0;
    if (std::fflush(stream) != 0 && stream == stdout && outputError == 0)
        outputError = errno ? errno : EIO;
}

bool outputWritten()
{
    // std::cout writes through the buffer of stdout (the two are kept in step), so one flush
    // hands over both; its failure is kept.
    flushOutput(stdout);
    if (outputError == 0 && (std::ferror(stdout) || !std::cout.good()))
        outputError = EIO;
    if (outputError == 0 || outputError == EPIPE)
        return true;
    complain("cannot write the output: %s", std::strerror(outputError));
    return false;
}

const std::string& lastComplaint()
{
    return last;
}

} // namespace Host
