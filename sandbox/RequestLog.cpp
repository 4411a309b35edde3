#include "RequestLog.h"

#include <algorithm>
#include <regex>

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

bool RequestLog::waitFor(const std::function<bool(const LoggedRequest&)>& matches,
                         std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(mutex);
    return grown.wait_for(lock, timeout, [&] { return std::any_of(log.begin(), log.end(), matches); });
}

std::map<int64_t, size_t> RequestLog::confirmedUploads() const
{
    static const std::regex reportPath(R"(^/api/tracks/(-?[0-9]+)/upload_status(\?.*)?$)");
    std::lock_guard lock(mutex);
    std::map<int64_t, size_t> confirmed;
    std::smatch match;
    for (const LoggedRequest& entry : log)
        if (entry.endpoint == Endpoint::UploadStatus && entry.statusCode == 200 &&
            std::regex_match(entry.target, match, reportPath))
            ++confirmed[std::stoll(match[1].str())];
    return confirmed;
}

} // namespace SorvelSandbox
