#include "platform/kvxsystem/HostSystem.h"

#include <algorithm>
#include <ctime>

namespace KVX::System {

KVX_DEFINE_CLASS(HostSystem, Object, "HostSystem")

tresult HostSystem::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISystem)
    return Object::queryInterface(iid, object);
}

namespace {

bool isLeapYear(int32 year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int32 daysInMonth(int32 year, int32 month)
{
    static constexpr int32 kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

bool isValid(const DateTime& t)
{
    return t.year >= 1 && t.year <= 9999 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= daysInMonth(t.year, t.month) && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 &&
           t.minute <= 59 && t.second >= 0 && t.second <= 59 && t.millisecond >= 0 && t.millisecond <= 999;
}

// The date and time as seconds since the epoch if it were UTC.
time_t secondsAsIfUTC(const DateTime& t)
{
    struct tm fields = {};
    fields.tm_year = t.year - 1900;
    fields.tm_mon = t.month - 1;
    fields.tm_mday = t.day;
    fields.tm_hour = t.hour;
    fields.tm_min = t.minute;
    fields.tm_sec = t.second;
    return timegm(&fields);
}

DateTime fromFields(const struct tm& fields, int32 millisecond)
{
    return DateTime{fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                    fields.tm_min,         fields.tm_sec,     millisecond};
}

// The zone's offset from UTC, in seconds east, at the instant `utc`.
long offsetAt(time_t utc)
{
    struct tm fields = {};
    localtime_r(&utc, &fields);
    return fields.tm_gmtoff;
}

} // namespace

void HostSystem::getLocalTime(DateTime& local)
{
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tzset(); // follow a changed TZ; localtime_r alone need not look again
    struct tm fields = {};
    localtime_r(&now.tv_sec, &fields);
    local = fromFields(fields, static_cast<int32>(now.tv_nsec / 1000000));
}

tresult HostSystem::convertLocalTimeToUTC(DateTime& utc, const DateTime& local)
{
    if (!isValid(local))
        return kInvalidArgument;
    tzset();
    // A local time L belongs to the instant U with U + offset(U) = L. Offsets change at most
    // once within a day, so the offsets a day before and a day after are the only candidates.
    // mktime is not used because what it makes of repeated and skipped hours varies.
    const time_t wall = secondsAsIfUTC(local);
    const long before = offsetAt(wall - 86400);
    const long after = offsetAt(wall + 86400);
    const time_t withBefore = wall - before;
    const time_t withAfter = wall - after;
    const bool beforeFits = offsetAt(withBefore) == before;
    const bool afterFits = offsetAt(withAfter) == after;
    time_t instant = withBefore; // also for the skipped hour, where neither fits
    if (beforeFits && afterFits)
        instant = std::min(withBefore, withAfter); // a repeated hour: its first occurrence
    else if (afterFits)
        instant = withAfter;
    struct tm fields = {};
    gmtime_r(&instant, &fields);
    const DateTime result = fromFields(fields, local.millisecond);
    if (!isValid(result))
        return kInvalidArgument; // beyond the range of years at either end
    utc = result;
    return kResultOk;
}

tresult HostSystem::convertUTCToLocalTime(DateTime& local, const DateTime& utc)
{
    if (!isValid(utc))
        return kInvalidArgument;
    tzset();
    const time_t instant = secondsAsIfUTC(utc);
    struct tm fields = {};
    localtime_r(&instant, &fields);
    const DateTime result = fromFields(fields, utc.millisecond);
    if (!isValid(result))
        return kInvalidArgument;
    local = result;
    return kResultOk;
}

} // namespace KVX::System
