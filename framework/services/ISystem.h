#pragma once

#include "framework/core/IUnknown.h"
#include "framework/services/DateTime.h"

namespace KVX {

/// The host's clock and its time-zone rules. The zone is the process's (the TZ variable, else
/// the system's setting), read again by every call. Any thread.
class ISystem : public IUnknown
{
public:
    /// The current local date and time, to the millisecond.
    virtual void getLocalTime(DateTime& local) = 0;

    /// Converts a local date and time to UTC with the zone's rules for that date, summer time
    /// included. A local time that happens twice (the hour repeated when summer time ends) is
    /// taken as its first occurrence; one that never happens (the hour skipped when summer time
    /// begins) is read with the offset in force before the change. Milliseconds are carried over.
    /// kInvalidArgument, with `utc` untouched, when a field of `local` is out of range (see
    /// DateTime), the day does not exist in that month, or the result would leave the range of
    /// years.
    virtual tresult convertLocalTimeToUTC(DateTime& utc, const DateTime& local) = 0;

    /// The reverse: the local date and time of a UTC date and time. kInvalidArgument, with
    /// `local` untouched, in the same cases.
    virtual tresult convertUTCToLocalTime(DateTime& local, const DateTime& utc) = 0;

    static constexpr UID kIID = UID::fromString("{B42D4875-842B-4631-A83A-9FB7382DE88D}");
};

} // namespace KVX
