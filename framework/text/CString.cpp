#include "framework/text/CString.h"

#include <cstdarg>
#include <cstdio>

namespace KVX {

CString CString::format(const char* pattern, ...)
{
    va_list args;
    va_start(args, pattern);
    va_list measure;
    va_copy(measure, args);
    int size = std::vsnprintf(nullptr, 0, pattern, measure);
    va_end(measure);
    std::string result;
    if (size > 0)
    {
        result.resize(static_cast<size_t>(size) + 1);
        std::vsnprintf(result.data(), result.size(), pattern, args);
        result.resize(static_cast<size_t>(size));
    }
    va_end(args);
    return CString(std::move(result));
}

} // namespace KVX
