#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace SorvelSandbox
{

// A misbehaviour that a test asks of one request. Faults that refuse a request (a status, an HTTP
// status of 400 or more, a dropped connection) leave the service's state unchanged; faults that
// spoil a reply's body (invalid, empty, truncated) let the request take effect and only damage what
// the client reads, as a reply lost on the way would.
struct Fault
{
    enum class Kind
    {
        StatusCode,     // the JSON envelope answers `value` as "status_code" (API endpoints)
        HttpStatus,     // the reply carries HTTP status `value`
        InvalidBody,    // the reply body is not JSON (API endpoints)
        EmptyBody,      // the reply body is empty
        TruncatedBody,  // the reply body is cut in half
        ReplacedBody,   // the reply body is `body`, whatever the request did (API endpoints)
        Delay,          // the reply comes `delay` late, otherwise unchanged
        DropConnection, // the connection is closed without a reply; on the upload target after
                        // `afterBytes` bytes of the body (0: half of the announced length)
        StopReading,    // the upload target reads none of the body for `delay`, then closes the
                        // connection without a reply (upload target only)
        CloseMidReply,  // the reply's headers announce the whole body, half of it is sent, then
                        // the connection closes (API endpoints); the request takes effect
        HoldRequest,    // the request is held before it takes effect: an API request once its body
                        // is read, an upload in the middle of its body (after `afterBytes` bytes;
                        // 0: half of the announced length), no more of which is read
        HoldReply       // the request takes effect (a file post: the file is stored) and its reply
                        // is held
        // A held request is logged as soon as it is held, without an HTTP status. It gets no
        // answer until Sandbox::releaseHeld, the sandbox's stop or `delay` has passed; then its
        // connection is reset. A test kills its client at that moment.
    };

    Kind kind = Kind::StatusCode;
    int value = 0;
    std::chrono::milliseconds delay{0};
    uint64_t afterBytes = 0;
    std::string body;

    static Fault statusCode(int code) { return Fault{Kind::StatusCode, code, {}, 0, {}}; }
    static Fault httpStatus(int status) { return Fault{Kind::HttpStatus, status, {}, 0, {}}; }
    static Fault invalidBody() { return Fault{Kind::InvalidBody, 0, {}, 0, {}}; }
    static Fault emptyBody() { return Fault{Kind::EmptyBody, 0, {}, 0, {}}; }
    static Fault truncatedBody() { return Fault{Kind::TruncatedBody, 0, {}, 0, {}}; }
    static Fault replacedBody(std::string body) { return Fault{Kind::ReplacedBody, 0, {}, 0, std::move(body)}; }
    static Fault delayed(std::chrono::milliseconds by) { return Fault{Kind::Delay, 0, by, 0, {}}; }
    static Fault dropConnection(uint64_t afterBytes = 0) { return Fault{Kind::DropConnection, 0, {}, afterBytes, {}}; }
    static Fault stopReading(std::chrono::milliseconds during) { return Fault{Kind::StopReading, 0, during, 0, {}}; }
    static Fault closeMidReply() { return Fault{Kind::CloseMidReply, 0, {}, 0, {}}; }
    static Fault holdRequest(std::chrono::milliseconds upTo, uint64_t afterBytes = 0)
    {
        return Fault{Kind::HoldRequest, 0, upTo, afterBytes, {}};
    }
    static Fault holdReply(std::chrono::milliseconds upTo) { return Fault{Kind::HoldReply, 0, upTo, 0, {}}; }
};

} // namespace SorvelSandbox
