#pragma once

#include "Endpoint.h"
#include "Fault.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace SorvelSandbox
{

// The faults armed for coming requests, per endpoint. Thread-safe.
class FaultPlan
{
public:
    // Arms `fault` for the nth request to `endpoint` counted from this call (1: the next one) and
    // for the `times - 1` requests after it. Throws std::invalid_argument for a count of 0 or a
    // fault that the endpoint cannot show (a "status_code" or non-JSON body on the upload target or
    // the web login page, an HTTP status outside 100 to 599, a delay that is not positive).
    void arm(Endpoint endpoint, const Fault& fault, unsigned nth, unsigned times);
    // Counts one request to the endpoint and returns the fault armed for it, if any. When several
    // faults cover the same request, the one armed first wins.
    std::optional<Fault> next(Endpoint endpoint);
    void clear();

private:
    struct Armed
    {
        Endpoint endpoint;
        Fault fault;
        uint64_t first; // request numbers, counted per endpoint from 1
        uint64_t last;
    };

    std::mutex mutex;
    std::array<uint64_t, kEndpointCount> seen{};
    std::vector<Armed> armed;
};

} // namespace SorvelSandbox
