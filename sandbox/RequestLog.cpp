#include "RequestLog.h"

namespace SorvelSandbox
{

void RequestLog::add(LoggedRequest entry)
{
    {
        std::lock_guard lock(mutex);
        log.push_back(std::move(entry));
    }
    grown.notify_all();
}

std::vector<LoggedRequest> RequestLog::entries() const
{
    std::lock_guard lock(mutex);
    return log;
}

std::vector<LoggedRequest> RequestLog::entries(Endpoint endpoint) const
{
    std::lock_guard lock(mutex);
    std::vector<LoggedRequest> matching;
    for (const LoggedRequest& entry : log)
        if (entry.endpoint == endpoint)
            matching.push_back(entry);
    return matching;
}

size_t RequestLog::size() const
{
    std::lock_guard lock(mutex);
    return log.size();
}

void RequestLog::clear()
{
    std::lock_guard lock(mutex);
    log.clear();
}

bool RequestLog::waitForSize(size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(mutex);
    return grown.wait_for(lock, timeout, [&] { return log.size() >= count; });
}

} // namespace SorvelSandbox
