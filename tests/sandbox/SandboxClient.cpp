#include "SandboxClient.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <ctime>
#include <fstream>

namespace SandboxTesting
{

namespace
{

size_t collect(char* data, size_t size, size_t count, void* target)
{
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

std::string digestHex(const EVP_MD* type, const std::string& bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EXPECT_EQ(EVP_Digest(bytes.data(), bytes.size(), digest, &length, type, nullptr), 1);
    std::string hex;
    char pair[3];
    for (unsigned i = 0; i < length; ++i)
    {
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        hex += pair;
    }
    return hex;
}

struct Producer
{
    const std::function<size_t(char*, size_t)>* produce;
};

size_t produceBody(char* buffer, size_t size, size_t count, void* state)
{
    return (*static_cast<Producer*>(state)->produce)(buffer, size * count);
}

} // namespace

Http::Http() : curl(curl_easy_init())
{
}

Http::~Http()
{
    curl_easy_cleanup(curl);
}

HttpReply Http::perform(const std::string& url, curl_slist* headers)
{
    HttpReply reply;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, 60L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    if (!caFile.empty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, caFile.c_str());
    reply.result = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_slist_free_all(headers);
    curl_easy_reset(curl);
    return reply;
}

HttpReply Http::get(const std::string& url)
{
    curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    return perform(url, nullptr);
}

HttpReply Http::post(const std::string& url, const std::string& body, const std::string& contentType)
{
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_slist* headers = curl_slist_append(nullptr, ("Content-Type: " + contentType).c_str());
    return perform(url, headers);
}

HttpReply Http::postStream(const std::string& url, const std::string& contentType, uint64_t length,
                           const std::function<size_t(char*, size_t)>& produce)
{
    Producer producer{&produce};
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, produceBody);
    curl_easy_setopt(curl, CURLOPT_READDATA, &producer);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length));
    curl_slist* headers = curl_slist_append(nullptr, ("Content-Type: " + contentType).c_str());
    headers = curl_slist_append(headers, "Expect:");
    return perform(url, headers);
}

std::string jsonObject(const JsonMembers& members)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> out(buffer);
    out.StartObject();
    for (const auto& [name, value] : members)
    {
        out.Key(name.c_str());
        if (const std::string* text = std::get_if<std::string>(&value))
            out.String(text->c_str(), static_cast<rapidjson::SizeType>(text->size()));
        else
            out.Int64(std::get<int64_t>(value));
    }
    out.EndObject();
    return buffer.GetString();
}

rapidjson::Document parseJson(const std::string& text)
{
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    EXPECT_FALSE(document.HasParseError()) << "not JSON: " << text;
    return document;
}

std::string escapeQuery(const std::string& text)
{
    char* escaped = curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size()));
    std::string result(escaped);
    curl_free(escaped);
    return result;
}

std::string query(const std::vector<std::pair<std::string, std::string>>& parameters)
{
    std::string text;
    for (const auto& [name, value] : parameters)
        text += (text.empty() ? "?" : "&") + escapeQuery(name) + "=" + escapeQuery(value);
    return text;
}

std::string md5Hex(const std::string& bytes)
{
    return digestHex(EVP_md5(), bytes);
}

std::string sha1Hex(const std::string& bytes)
{
    return digestHex(EVP_sha1(), bytes);
}

std::string sha256Hex(const std::string& bytes)
{
    return digestHex(EVP_sha256(), bytes);
}

Sha256::Sha256() : context(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(context), EVP_sha256(), nullptr);
}

Sha256::~Sha256()
{
    EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(context));
}

void Sha256::update(const char* data, size_t length)
{
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(context), data, length);
}

std::string Sha256::hex()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(context), digest, &length);
    std::string hex;
    char pair[3];
    for (unsigned i = 0; i < length; ++i)
    {
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        hex += pair;
    }
    return hex;
}

std::string clientTimestamp(long offsetSeconds)
{
    std::time_t when = std::time(nullptr) + offsetSeconds;
    std::tm fields{};
    gmtime_r(&when, &fields);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &fields);
    return text;
}

std::vector<std::pair<std::string, std::string>> SignedIn::authQuery() const
{
    return {{"token", token}, {"timestamp", timestamp}, {"account_id", accountId}, {"partner_id", partnerId}};
}

JsonMembers SignedIn::authMembers() const
{
    return {{"token", token}, {"timestamp", timestamp}, {"account_id", accountId}, {"partner_id", partnerId}};
}

std::string signInBody(const SorvelSandbox::Sandbox& sandbox, const std::string& username, const std::string& password,
                       const std::string& timestamp)
{
    const std::string partnerId = sandbox.partnerId();
    const std::string partnerKey = sandbox.partnerKey();
    return jsonObject({{"partner_id", partnerId},
                       {"username", username},
                       {"timestamp", timestamp},
                       {"password", sha1Hex(password + timestamp + partnerKey)},
                       {"signature", md5Hex(partnerId + partnerKey)}});
}

SignedIn signIn(Http& http, const SorvelSandbox::Sandbox& sandbox, const std::string& username,
                const std::string& password)
{
    HttpReply reply = http.post(sandbox.baseUrl() + "users/auth/token",
                                signInBody(sandbox, username, password, clientTimestamp()), "application/json");
    EXPECT_EQ(reply.result, CURLE_OK);
    EXPECT_EQ(reply.status, 200);
    rapidjson::Document document = parseJson(reply.body);
    SignedIn session;
    session.partnerId = sandbox.partnerId();
    if (!document.IsObject() || !document.HasMember("data") || statusCode(reply.body) != 200)
    {
        ADD_FAILURE() << "sign-in refused: " << reply.body;
        return session;
    }
    const rapidjson::Value& data = document["data"];
    session.token = data["token"].GetString();
    session.timestamp = data["timestamp"].GetString();
    session.accountId = std::to_string(data["account_id"].GetInt64());
    return session;
}

SignedIn signInAsDemo(Http& http, const SorvelSandbox::Sandbox& sandbox)
{
    const SorvelSandbox::Sandbox::Login login = sandbox.demoLogin();
    return signIn(http, sandbox, login.username, login.password);
}

UploadTicket uploadToken(Http& http, const SorvelSandbox::Sandbox& sandbox, const SignedIn& session, int64_t trackId)
{
    HttpReply reply = http.get(sandbox.baseUrl() + "tracks/" + std::to_string(trackId) + "/upload_token" +
                               query(session.authQuery()));
    UploadTicket ticket;
    rapidjson::Document document = parseJson(reply.body);
    if (statusCode(reply.body) != 200)
    {
        ADD_FAILURE() << "upload token refused: " << reply.body;
        return ticket;
    }
    const rapidjson::Value& data = document["data"];
    ticket.url = data["url"].GetString();
    for (auto& field : data["post_data"].GetObject())
        ticket.fields.emplace_back(field.name.GetString(), field.value.IsString()
                                                               ? std::string(field.value.GetString())
                                                               : std::to_string(field.value.GetInt64()));
    return ticket;
}

std::string uploadBodyHead(const std::string& boundary, const std::vector<std::pair<std::string, std::string>>& fields,
                           const std::string& fileName)
{
    std::string body;
    auto field = [&](const std::string& name, const std::string& value) {
        body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
    };
    for (const auto& [name, value] : fields)
        field(name, value);
    field("Content-Type", "audio/x-wav");
    body += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + fileName +
            "\"\r\nContent-Transfer-Encoding: binary\r\nContent-Type: application/octet-stream\r\n\r\n";
    return body;
}

std::string uploadBodyTail(const std::string& boundary)
{
    return "\r\n--" + boundary + "--\r\n";
}

std::string uploadBody(const std::string& boundary, const std::vector<std::pair<std::string, std::string>>& fields,
                       const std::string& fileName, const std::string& fileBytes)
{
    return uploadBodyHead(boundary, fields, fileName) + fileBytes + uploadBodyTail(boundary);
}

std::string uploadContentType(const std::string& boundary)
{
    return "multipart/form-data; boundary=" + boundary;
}

int statusCode(const std::string& replyBody)
{
    rapidjson::Document document;
    document.Parse(replyBody.c_str(), replyBody.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("status_code") ||
        !document["status_code"].IsInt())
        return -1;
    return document["status_code"].GetInt();
}

std::string errorText(const std::string& replyBody)
{
    rapidjson::Document document;
    document.Parse(replyBody.c_str(), replyBody.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("data") ||
        !document["data"].IsObject() || !document["data"].HasMember("error"))
        return {};
    return document["data"]["error"].GetString();
}

uint64_t peakResidentBytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stoull(line.substr(6)) * 1024;
    ADD_FAILURE() << "no VmHWM in /proc/self/status";
    return 0;
}

} // namespace SandboxTesting
