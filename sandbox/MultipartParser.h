#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace SorvelSandbox
{

// A strict streaming reader of a multipart/form-data body. It is fed the body in pieces of any size
// as they arrive and keeps only a few bytes more than the delimiter between calls, so its memory does
// not depend on the size of the parts. Compared with a browser-friendly parser it refuses more:
// the body must begin with the first delimiter line (no preamble), every line ends in CR LF, no
// white space follows a delimiter, and the closing delimiter must be followed by exactly CR LF and
// nothing else. What the parts must contain is the listener's business.
class MultipartParser
{
public:
    struct Header
    {
        std::string name;
        std::string value;
    };

    // Receives the parts in order. Each call may refuse the body by returning false with a reason.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual bool partBegin(const std::vector<Header>& headers, std::string& error) = 0;
        virtual bool partData(const char* data, size_t length, std::string& error) = 0;
        virtual bool partEnd(std::string& error) = 0;
    };

    // Takes the boundary from a Content-Type header value of the form
    // "multipart/form-data; boundary=..." (the boundary may be quoted). Returns false with a reason
    // when the type is different or the boundary is missing or invalid.
    static bool boundaryFromContentType(std::string_view contentType, std::string& boundary, std::string& error);
    // One to 70 characters from the set that a multipart boundary may use, not ending in a space.
    static bool isValidBoundary(std::string_view boundary);

    MultipartParser(std::string boundary, Listener& listener);

    // Parses the next piece of the body. Returns false once the body has been refused; later calls
    // then do nothing and return false.
    bool feed(const char* data, size_t length);
    // Called at the end of the body: true only when the closing delimiter and its CR LF were read.
    bool finish();

    bool failed() const { return state == State::Failed; }
    const std::string& error() const { return errorText; }
    // Bytes of the body consumed so far; error messages give the offset at which parsing stopped.
    uint64_t offset() const { return consumed; }
    size_t partCount() const { return parts; }

private:
    enum class State
    {
        FirstDelimiter,
        AfterDelimiter,
        HeaderLine,
        Body,
        CloseLineEnd,
        Done,
        Failed
    };

    bool feedBytes(const char* data, size_t length);
    bool feedBody(const char*& data, size_t& length);
    bool acceptHeaderLine();
    bool fail(const std::string& reason);

    static constexpr size_t kMaxHeaderLine = 8192;
    static constexpr size_t kMaxHeaders = 16;
    static constexpr size_t kMaxParts = 256;
    // The body state examines at most this many new bytes per step.
    static constexpr size_t kWindow = 64 * 1024;

    Listener& listener;
    std::string boundary;
    // "\r\n--" followed by the boundary: what ends a part's content.
    std::string delimiter;
    State state = State::FirstDelimiter;
    std::string errorText;
    uint64_t consumed = 0;
    size_t parts = 0;
    size_t matched = 0;          // bytes of "--" + boundary, or of a two-byte line end, matched so far
    char pendingPair[2] = {0, 0}; // the two bytes after a delimiter
    std::string line;             // the header line being read
    std::vector<Header> headers;  // the current part's headers
    std::string held;             // end of the previous piece that may begin a delimiter
    std::string window;           // held bytes plus the new bytes being searched
};

} // namespace SorvelSandbox
