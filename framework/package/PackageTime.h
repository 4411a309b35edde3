#pragma once

#include "framework/core/Types.h"

namespace KVX {

/// The modification time that a package records for a file, as the 9 bytes of its record hold
/// it. Coordinated universal time; the reader does not judge the values.
struct PackageTime
{
    std::uint16_t year = 1980;
    uint8 month = 1;
    uint8 day = 1;
    uint8 hour = 0;
    uint8 minute = 0;
    uint8 second = 0;
    std::uint16_t milliseconds = 0;

    bool operator==(const PackageTime&) const = default;
};

} // namespace KVX
