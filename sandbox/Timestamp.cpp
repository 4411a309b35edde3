#include "Timestamp.h"

#include <cstdio>

namespace SorvelSandbox
{

namespace
{

bool readDigits(std::string_view text, size_t at, size_t count, int& value)
{
    value = 0;
    for (size_t i = at; i < at + count; ++i)
    {
        if (text[i] < '0' || text[i] > '9')
            return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

} // namespace

std::optional<std::time_t> parseClientTimestamp(std::string_view text)
{
    // Positions of the separators in "YYYY-MM-DDTHH:MM:SS".
    if (text.size() != 19 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':')
        return std::nullopt;
    int year, month, day, hour, minute, second;
    if (!readDigits(text, 0, 4, year) || !readDigits(text, 5, 2, month) || !readDigits(text, 8, 2, day) ||
        !readDigits(text, 11, 2, hour) || !readDigits(text, 14, 2, minute) || !readDigits(text, 17, 2, second))
        return std::nullopt;
    if (year < 1970 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;

    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    std::time_t seconds = timegm(&fields);
    // timegm normalises overflowing days (February 30 becomes March 2); such a date is refused.
    if (seconds == static_cast<std::time_t>(-1) || fields.tm_mday != day || fields.tm_mon != month - 1)
        return std::nullopt;
    return seconds;
}

std::string makeServerTimestamp(std::time_t now, std::string_view nonce)
{
    std::tm fields{};
    gmtime_r(&now, &fields);
    char text[64];
    std::snprintf(text, sizeof text, "%04d%02d%02dT%02d%02d%02dZ-", fields.tm_year + 1900, fields.tm_mon + 1,
                  fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return std::string(text) + std::string(nonce);
}

} // namespace SorvelSandbox
