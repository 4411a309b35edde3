#pragma once

#include "Endpoint.h"
#include "Fault.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace SorvelSandbox
{

// What the sandbox received and answered for one request. It holds request bodies as sent (a
// sign-in body carries the password digest, never the password), so the log stays in memory for
// tests and is never printed.
struct LoggedRequest
{
    Endpoint endpoint = Endpoint::Unknown;
    std::string method;
    std::string target;      // path and query as received
    std::string contentType; // the request's Content-Type header
    std::string body;        // a JSON request body as received; empty for uploads
    std::vector<std::string> memberNames; // top-level member names of a JSON body, in order
    uint64_t bodyBytes = 0;  // bytes of body received
    int httpStatus = 0;
    int statusCode = 0;      // the envelope's "status_code"; 0 for replies without an envelope
    std::string error;       // why the request was refused; empty when it succeeded
    std::optional<Fault::Kind> fault; // the injected fault that shaped the reply
    uint64_t connection = 0; // the connection it came on, numbered from 1 in the order accepted
};

// The requests in the order their replies were decided. Thread-safe.
class RequestLog
{
public:
    void add(LoggedRequest entry);
    std::vector<LoggedRequest> entries() const;
    std::vector<LoggedRequest> entries(Endpoint endpoint) const;
    size_t size() const;
    void clear();
    // Waits until the log holds at least `count` entries; false when the time-out passed first.
    bool waitForSize(size_t count, std::chrono::milliseconds timeout) const;
    // Waits until the log holds an entry that `matches`; false when the time-out passed first.
    bool waitFor(const std::function<bool(const LoggedRequest&)>& matches, std::chrono::milliseconds timeout) const;
    // How many completion reports (upload_status) the service accepted per track id: each one
    // that took effect, whether or not its reply reached the client.
    std::map<int64_t, size_t> confirmedUploads() const;

private:
    mutable std::mutex mutex;
    mutable std::condition_variable grown;
    std::vector<LoggedRequest> log;
};

} // namespace SorvelSandbox
