#include "FaultPlan.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace SorvelSandbox
{

void FaultPlan::arm(Endpoint endpoint, const Fault& fault, unsigned nth, unsigned times)
{
    if (nth == 0 || times == 0)
        throw std::invalid_argument("a fault needs a request number and a count of at least 1");
    const bool jsonEndpoint = endpoint != Endpoint::Upload && endpoint != Endpoint::WebLogin;
    if ((fault.kind == Fault::Kind::StatusCode || fault.kind == Fault::Kind::InvalidBody ||
         fault.kind == Fault::Kind::ReplacedBody || fault.kind == Fault::Kind::CloseMidReply) &&
        !jsonEndpoint)
        throw std::invalid_argument(std::string("the ") + endpointName(endpoint) + " endpoint answers no JSON envelope");
    if (fault.kind == Fault::Kind::HttpStatus && (fault.value < 100 || fault.value > 599))
        throw std::invalid_argument("an HTTP status lies between 100 and 599");
    if ((fault.kind == Fault::Kind::Delay || fault.kind == Fault::Kind::StopReading ||
         fault.kind == Fault::Kind::HoldRequest || fault.kind == Fault::Kind::HoldReply) &&
        fault.delay.count() <= 0)
        throw std::invalid_argument("a delay must be positive");
    if (fault.kind == Fault::Kind::StopReading && endpoint != Endpoint::Upload)
        throw std::invalid_argument("only the upload target can stop reading a body");

    std::lock_guard lock(mutex);
    const uint64_t first = seen[static_cast<size_t>(endpoint)] + nth;
    armed.push_back(Armed{endpoint, fault, first, first + times - 1});
}

std::optional<Fault> FaultPlan::next(Endpoint endpoint)
{
    std::lock_guard lock(mutex);
    const uint64_t number = ++seen[static_cast<size_t>(endpoint)];
    std::optional<Fault> result;
    for (const Armed& entry : armed)
        if (entry.endpoint == endpoint && entry.first <= number && number <= entry.last)
        {
            result = entry.fault;
            break;
        }
    // Faults whose requests have all passed are of no further use.
    std::erase_if(armed, [&](const Armed& entry) { return entry.endpoint == endpoint && entry.last <= number; });
    return result;
}

void FaultPlan::clear()
{
    std::lock_guard lock(mutex);
    armed.clear();
}

} // namespace SorvelSandbox
