#pragma once

// A client for the sandbox's tests, written on libcurl, RapidJSON and OpenSSL directly: it shares
// no code with the sandbox, so that a mistake on the service's side cannot hide behind the same
// mistake here.

#include "sandbox/Sandbox.h"

#include <curl/curl.h>
#include <openssl/evp.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace SandboxTesting
{

using SorvelSandbox::Sandbox;
using Parameters = std::vector<std::pair<std::string, std::string>>;

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
    Http() : curl(curl_easy_init()) {}
    ~Http() { curl_easy_cleanup(curl); }
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
std::string query(const Parameters& parameters);
// The pairs with the value of `name` replaced, or with the pair added at the end when there is none.
template <typename Value>
std::vector<std::pair<std::string, Value>> changed(std::vector<std::pair<std::string, Value>> pairs,
                                                   const std::string& name, const std::type_identity_t<Value>& value)
{
    auto same = std::find_if(pairs.begin(), pairs.end(), [&](const auto& pair) { return pair.first == name; });
    if (same == pairs.end())
        pairs.emplace_back(name, value);
    else
        same->second = value;
    return pairs;
}

// The digest, in lower-case hexadecimal, of the algorithm of that name ("MD5", "SHA1", "SHA256").
std::string digestHex(const char* algorithm, const std::string& bytes);
inline std::string md5Hex(const std::string& bytes) { return digestHex("MD5", bytes); }
inline std::string sha1Hex(const std::string& bytes) { return digestHex("SHA1", bytes); }
inline std::string sha256Hex(const std::string& bytes) { return digestHex("SHA256", bytes); }
// Incremental SHA-256, for bodies too large to hold.
class Sha256
{
public:
    Sha256() { EVP_DigestInit_ex(context, EVP_sha256(), nullptr); }
    ~Sha256() { EVP_MD_CTX_free(context); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    void update(const char* data, size_t length) { EVP_DigestUpdate(context, data, length); }
    std::string hex();

private:
    EVP_MD_CTX* context = EVP_MD_CTX_new();
};

// "YYYY-MM-DDTHH:MM:SS" in UTC, `offsetSeconds` away from now.
std::string clientTimestamp(long offsetSeconds = 0);
// The partner's signature: the MD5 of the partner id and key.
inline std::string partnerSignature(const Sandbox& sandbox)
{
    return md5Hex(sandbox.partnerId() + sandbox.partnerKey());
}

struct SignedIn
{
    std::string token;
    std::string timestamp; // the service's own, echoed unchanged
    std::string accountId;
    std::string partnerId;

    Parameters authQuery() const
    {
        return {{"token", token}, {"timestamp", timestamp}, {"account_id", accountId}, {"partner_id", partnerId}};
    }
    // The members followed by the authorization members.
    JsonMembers withAuth(JsonMembers members) const
    {
        for (const auto& [name, value] : authQuery())
            members.emplace_back(name, value);
        return members;
    }
    JsonMembers authMembers() const { return withAuth({}); }
};

// The sign-in body, members in the order the client sends them.
std::string signInBody(const Sandbox& sandbox, const std::string& username, const std::string& password,
                       const std::string& timestamp);
// Signs in and fails the calling test unless the service accepts.
SignedIn signIn(Http& http, const Sandbox& sandbox, const std::string& username, const std::string& password);
SignedIn signInAsDemo(Http& http, const Sandbox& sandbox);
// The account's titles with their tracks.
HttpReply titlesInDetail(Http& http, const Sandbox& sandbox, const SignedIn& session);
// Creates a title of that name, artist "A" and no UPC.
HttpReply createTitle(Http& http, const Sandbox& sandbox, const SignedIn& session, const std::string& name);
// The web login page signed for the account; `more` replaces signed parameters of its names and adds the others.
std::string webLoginUrl(const Sandbox& sandbox, const std::string& username, const std::string& password,
                        long offsetSeconds = 0, const Parameters& more = {});

struct UploadTicket
{
    std::string url;
    Parameters fields; // post_data, numbers as decimal text
};
UploadTicket uploadToken(Http& http, const Sandbox& sandbox, const SignedIn& session, int64_t trackId);

// The first part of uploadBody, up to and including the blank line after the file part's headers.
std::string uploadBodyHead(const std::string& boundary, const Parameters& fields, const std::string& fileName);
inline std::string uploadBodyTail(const std::string& boundary) { return "\r\n--" + boundary + "--\r\n"; }
// The exact multipart body the plug-in sends: the fields, the "Content-Type" field, the file part.
inline std::string uploadBody(const std::string& boundary, const Parameters& fields, const std::string& fileName,
                              const std::string& fileBytes)
{
    return uploadBodyHead(boundary, fields, fileName) + fileBytes + uploadBodyTail(boundary);
}
inline std::string uploadContentType(const std::string& boundary)
{
    return "multipart/form-data; boundary=" + boundary;
}

// The service's "status_code" of an envelope reply, or -1 when the body is no envelope.
int statusCode(const std::string& replyBody);
// The "error" text of a refused envelope reply.
std::string errorText(const std::string& replyBody);

// The process's peak resident set size, from /proc/self/status (VmHWM), in bytes.
uint64_t peakResidentBytes();

// The whole content of a file, or "" when it cannot be read.
std::string readWholeFile(const std::string& path);

} // namespace SandboxTesting
