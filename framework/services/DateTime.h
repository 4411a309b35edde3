#pragma once

#include "framework/core/Types.h"

namespace KVX {

/// A calendar date and time of day without a time zone: whether it is local time or UTC is said
/// by whoever hands it over. A plain record, copied by value.
struct DateTime
{
    int32 year;        ///< 1 to 9999
    int32 month;       ///< 1 to 12
    int32 day;         ///< 1 to the length of the month
    int32 hour;        ///< 0 to 23
    int32 minute;      ///< 0 to 59
    int32 second;      ///< 0 to 59
    int32 millisecond; ///< 0 to 999

    bool operator==(const DateTime&) const = default;
};

} // namespace KVX
