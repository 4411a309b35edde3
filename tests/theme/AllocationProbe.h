#pragma once

#include <cstddef>

namespace ThemeTests {

/// Watches the sizes that operator new is asked for while it lives (the test program replaces
/// the global operator new to report them). One probe at a time.
class AllocationProbe
{
public:
    AllocationProbe();
    ~AllocationProbe();
    AllocationProbe(const AllocationProbe&) = delete;
    AllocationProbe& operator=(const AllocationProbe&) = delete;

    /// The largest single request since the probe was made.
    std::size_t largest() const;
};

} // namespace ThemeTests
