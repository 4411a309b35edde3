#pragma once

// A client for the sandbox's tests, written on libcurl, RapidJSON and OpenSSL directly: it shares
// no code with the sandbox, so that a mistake on the service's side cannot hide behind the same
// mistake here.

#include "sandbox/Sandbox.h"

#include <curl/curl.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace SandboxTesting
{

struct HttpReply
{
    CURLcode result = CURLE_OK;
    long status = 0;
    std::string body;
};

// One libcurl easy handle, reused so that requests share a keep-alive connection.
class Http
{
public:
    Http();
    ~Http();
    Http(const Http&) = delete;
    Http& operator=(const Http&) = delete;

    // Trust this PEM certificate for HTTPS.
    void trust(const std::string& certificateFile) { caFile = certificateFile; }

    HttpReply get(const std::string& url);
    HttpReply post(const std::string& url, const std::string& body, const std::string& contentType);
    // Sends a body of `length` bytes that `produce` writes piece by piece into the buffer it is
    // given, returning how many bytes it wrote; nothing of the body is held in memory here.
    HttpReply postStream(const std::string& url, const std::string& contentType, uint64_t length,
                         const std::function<size_t(char* buffer, size_t room)>& produce);

private:
    HttpReply perform(const std::string& url, curl_slist* headers);

    CURL* curl;
    std::string caFile;
};

using JsonValue = std::variant<std::string, int64_t>;
using JsonMembers = std::vector<std::pair<std::string, JsonValue>>;

// Writes the members, in order, as one JSON object.
std::string jsonObject(const JsonMembers& members);
// Parses a reply that must be JSON; a parse failure fails the calling test.
rapidjson::Document parseJson(const std::string& text);
std::string escapeQuery(const std::string& text);
std::string query(const std::vector<std::pair<std::string, std::string>>& parameters);

std::string md5Hex(const std::string& bytes);
std::string sha1Hex(const std::string& bytes);
std::string sha256Hex(const std::string& bytes);
// Incremental SHA-256, for bodies too large to hold.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    void update(const char* data, size_t length);
    std::string hex();

private:
    void* context;
};

// "YYYY-MM-DDTHH:MM:SS" in UTC, `offsetSeconds` away from now.
std::string clientTimestamp(long offsetSeconds = 0);

struct SignedIn
{
    std::string token;
    std::string timestamp; // the service's own, echoed unchanged
    std::string accountId;
    std::string partnerId;

    std::vector<std::pair<std::string, std::string>> authQuery() const;
    JsonMembers authMembers() const;
};

// The sign-in body, members in the order the client sends them.
std::string signInBody(const SorvelSandbox::Sandbox& sandbox, const std::string& username, const std::string& password,
                       const std::string& timestamp);
// Signs in and fails the calling test unless the service accepts.
SignedIn signIn(Http& http, const SorvelSandbox::Sandbox& sandbox, const std::string& username,
                const std::string& password);
SignedIn signInAsDemo(Http& http, const SorvelSandbox::Sandbox& sandbox);

struct UploadTicket
{
    std::string url;
    std::vector<std::pair<std::string, std::string>> fields; // post_data, numbers as decimal text
};
UploadTicket uploadToken(Http& http, const SorvelSandbox::Sandbox& sandbox, const SignedIn& session, int64_t trackId);

// The exact multipart body the plug-in sends: the fields, the "Content-Type" field, the file part.
std::string uploadBody(const std::string& boundary, const std::vector<std::pair<std::string, std::string>>& fields,
                       const std::string& fileName, const std::string& fileBytes);
std::string uploadContentType(const std::string& boundary);
// The first part of uploadBody, up to and including the blank line after the file part's headers.
std::string uploadBodyHead(const std::string& boundary, const std::vector<std::pair<std::string, std::string>>& fields,
                           const std::string& fileName);
std::string uploadBodyTail(const std::string& boundary);

// The service's "status_code" of an envelope reply, or -1 when the body is no envelope.
int statusCode(const std::string& replyBody);
// The "error" text of a refused envelope reply.
std::string errorText(const std::string& replyBody);

// The process's peak resident set size, from /proc/self/status (VmHWM), in bytes.
uint64_t peakResidentBytes();

} // namespace SandboxTesting
