#pragma once

#include "framework/core/Types.h"

#include <functional>

namespace KVX {

/// Runs the user-interface run loop until something has happened. For tests and for the host's
/// modal waits; never a fixed sleep.
class EventWait
{
public:
    /// Processes events until `condition` holds (true) or `timeoutMs` has passed (false). The
    /// condition is checked before the first wait and after every batch of events. Loop thread only.
    static bool until(const std::function<bool()>& condition, uint32 timeoutMs);
    /// Processes events for `durationMs`, for checking that something does not happen.
    static void runFor(uint32 durationMs);
};

} // namespace KVX
