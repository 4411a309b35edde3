#include "MultipartParser.h"

#include "TextCompare.h"

#include <algorithm>
#include <cstring>

namespace SorvelSandbox
{

namespace
{

std::string_view trim(std::string_view text)
{
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

// A character allowed in a header name (an HTTP token).
bool isTokenChar(char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    return std::strchr("!#$%&'*+-.^_`|~", c) != nullptr && c != '\0';
}

} // namespace

bool MultipartParser::isValidBoundary(std::string_view boundary)
{
    if (boundary.empty() || boundary.size() > 70 || boundary.back() == ' ')
        return false;
    return std::all_of(boundary.begin(), boundary.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               (c != '\0' && std::strchr("'()+_,-./:=? ", c) != nullptr);
    });
}

bool MultipartParser::boundaryFromContentType(std::string_view contentType, std::string& boundary,
                                              std::string& error)
{
    size_t semicolon = contentType.find(';');
    std::string_view type = trim(contentType.substr(0, semicolon));
    if (!equalsIgnoringCase(type, "multipart/form-data"))
    {
        error = "the body must be multipart/form-data, not \"" + std::string(type) + "\"";
        return false;
    }
    bool found = false;
    while (semicolon != std::string_view::npos)
    {
        contentType.remove_prefix(semicolon + 1);
        semicolon = contentType.find(';');
        std::string_view parameter = trim(contentType.substr(0, semicolon));
        size_t equals = parameter.find('=');
        if (equals == std::string_view::npos)
        {
            error = "the Content-Type header has a parameter without a value";
            return false;
        }
        if (!equalsIgnoringCase(trim(parameter.substr(0, equals)), "boundary"))
            continue;
        if (found)
        {
            error = "the Content-Type header names the boundary twice";
            return false;
        }
        found = true;
        std::string_view value = trim(parameter.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        boundary.assign(value);
    }
    if (!found)
    {
        error = "the Content-Type header has no boundary";
        return false;
    }
    if (!isValidBoundary(boundary))
    {
        error = "the boundary \"" + boundary + "\" is not a valid multipart boundary";
        return false;
    }
    return true;
}

MultipartParser::MultipartParser(std::string boundary, Listener& listener)
    : listener(listener), boundary(std::move(boundary)), delimiter("\r\n--" + this->boundary)
{
}

bool MultipartParser::fail(const std::string& reason)
{
    if (state != State::Failed)
    {
        state = State::Failed;
        errorText = reason + " (at byte " + std::to_string(consumed) + " of the body)";
    }
    return false;
}

bool MultipartParser::feed(const char* data, size_t length)
{
    if (state == State::Failed)
        return false;
    return feedBytes(data, length);
}

bool MultipartParser::feedBytes(const char* data, size_t length)
{
    while (length > 0)
    {
        if (state == State::Body)
        {
            if (!feedBody(data, length))
                return false;
            continue;
        }
        const char c = *data;
        switch (state)
        {
        case State::FirstDelimiter:
            // The first delimiter has no CR LF in front of it.
            if (c != delimiter[2 + matched])
                return fail("the body must begin with the delimiter line \"--" + boundary + "\"");
            if (++matched == delimiter.size() - 2)
            {
                matched = 0;
                state = State::AfterDelimiter;
            }
            break;
        case State::AfterDelimiter:
            pendingPair[matched] = c;
            if (++matched == 2)
            {
                matched = 0;
                if (pendingPair[0] == '\r' && pendingPair[1] == '\n')
                {
                    if (++parts > kMaxParts)
                        return fail("the body has more than " + std::to_string(kMaxParts) + " parts");
                    headers.clear();
                    line.clear();
                    state = State::HeaderLine;
                }
                else if (pendingPair[0] == '-' && pendingPair[1] == '-')
                    state = State::CloseLineEnd;
                else
                    return fail("a delimiter must be followed by CR LF, or by \"--\" when it closes the body");
            }
            break;
        case State::HeaderLine:
            if (c == '\n')
            {
                if (line.empty() || line.back() != '\r')
                    return fail("a part header line ends in a bare LF instead of CR LF");
                line.pop_back();
                ++consumed;
                ++data;
                --length;
                if (!acceptHeaderLine())
                    return false;
                continue;
            }
            if (!line.empty() && line.back() == '\r')
                return fail("a part header line holds a bare CR");
            if (line.size() == kMaxHeaderLine)
                return fail("a part header line is longer than " + std::to_string(kMaxHeaderLine) + " bytes");
            line.push_back(c);
            break;
        case State::CloseLineEnd:
            if (c != "\r\n"[matched])
                return fail("the closing delimiter must be followed by exactly CR LF");
            if (++matched == 2)
                state = State::Done;
            break;
        case State::Done:
            return fail("data follows the closing delimiter");
        case State::Body:
        case State::Failed:
            return false;
        }
        ++consumed;
        ++data;
        --length;
    }
    return true;
}

bool MultipartParser::acceptHeaderLine()
{
    if (line.empty())
    {
        if (headers.empty())
            return fail("part " + std::to_string(parts) + " has no headers");
        std::string reason;
        if (!listener.partBegin(headers, reason))
            return fail(reason);
        held.clear();
        state = State::Body;
        return true;
    }
    if (headers.size() == kMaxHeaders)
        return fail("part " + std::to_string(parts) + " has more than " + std::to_string(kMaxHeaders) + " headers");
    if (line.front() == ' ' || line.front() == '\t')
        return fail("folded part header lines are not accepted");
    size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0 ||
        !std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon), isTokenChar))
        return fail("a part header line is not of the form \"Name: value\"");
    std::string_view value = trim(std::string_view(line).substr(colon + 1));
    if (std::any_of(value.begin(), value.end(), [](char c) { return (c >= 0 && c < 0x20 && c != '\t') || c == 0x7f; }))
        return fail("a part header value holds a control character");
    headers.push_back(Header{line.substr(0, colon), std::string(value)});
    line.clear();
    return true;
}

bool MultipartParser::feedBody(const char*& data, size_t& length)
{
    // The window is the held tail of the previous piece followed by new bytes; a delimiter found in
    // it always ends inside the new bytes, because fewer bytes than a delimiter are ever held.
    const size_t heldSize = held.size();
    const size_t take = std::min(length, kWindow);
    window.assign(held);
    window.append(data, take);

    std::string reason;
    const size_t at = window.find(delimiter);
    if (at == std::string::npos)
    {
        const size_t keep = std::min(window.size(), delimiter.size() - 1);
        const size_t emit = window.size() - keep;
        if (emit > 0 && !listener.partData(window.data(), emit, reason))
            return fail(reason);
        consumed += emit;
        held.assign(window, emit, keep);
        data += take;
        length -= take;
        return true;
    }
    if (at > 0 && !listener.partData(window.data(), at, reason))
        return fail(reason);
    consumed += at + delimiter.size();
    if (!listener.partEnd(reason))
        return fail(reason);
    const size_t used = at + delimiter.size() - heldSize;
    data += used;
    length -= used;
    held.clear();
    matched = 0;
    state = State::AfterDelimiter;
    return true;
}

bool MultipartParser::finish()
{
    switch (state)
    {
    case State::Done:
        return true;
    case State::Failed:
        return false;
    case State::FirstDelimiter:
        return fail(consumed == 0 && matched == 0 ? "the body is empty" : "the body ends inside its first delimiter");
    case State::AfterDelimiter:
    case State::HeaderLine:
        return fail("the body ends inside the headers of part " + std::to_string(parts));
    case State::Body:
        return fail("the body ends inside part " + std::to_string(parts) + ": the closing delimiter \"--" + boundary +
                    "--\" is missing");
    case State::CloseLineEnd:
        return fail("the body ends without the CR LF after the closing delimiter");
    }
    return false;
}

} // namespace SorvelSandbox
