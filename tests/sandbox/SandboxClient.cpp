#include "SandboxClient.h"

#include <gtest/gtest.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <ctime>
#include <fstream>
#include <iterator>

namespace SandboxTesting
{

namespace
{

using Produce = std::function<size_t(char*, size_t)>;

size_t collect(char* data, size_t size, size_t count, void* target)
{
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

size_t produceBody(char* buffer, size_t size, size_t count, void* produce)
{
    return (*static_cast<const Produce*>(produce))(buffer, size * count);
}

std::string toHex(const unsigned char* bytes, unsigned length)
{
    std::string text;
    char pair[3];
    for (unsigned i = 0; i < length; ++i)
    {
        std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

// The value at `path` of a JSON text; null when the text is no JSON or has nothing there.
const rapidjson::Value* valueAt(rapidjson::Document& document, const std::string& text, const char* path)
{
    document.Parse(text.c_str(), text.size());
    return document.HasParseError() ? nullptr : rapidjson::Pointer(path).Get(document);
}

} // namespace

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
    return perform(url, curl_slist_append(nullptr, ("Content-Type: " + contentType).c_str()));
}

HttpReply Http::postStream(const std::string& url, const std::string& contentType, uint64_t length,
                           const Produce& produce)
{
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, produceBody);
    curl_easy_setopt(curl, CURLOPT_READDATA, const_cast<Produce*>(&produce));
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length));
    curl_slist* headers = curl_slist_append(nullptr, ("Content-Type: " + contentType).c_str());
    return perform(url, curl_slist_append(headers, "Expect:"));
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

std::string query(const Parameters& parameters)
{
    auto escape = [](const std::string& text) {
        char* escaped = curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size()));
        std::string result(escaped);
        curl_free(escaped);
        return result;
    };
    std::string text;
    for (const auto& [name, value] : parameters)
        text += (text.empty() ? "?" : "&") + escape(name) + "=" + escape(value);
    return text;
}

std::string digestHex(const char* algorithm, const std::string& bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EXPECT_EQ(EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_get_digestbyname(algorithm), nullptr), 1);
    return toHex(digest, length);
}

std::string Sha256::hex()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(context, digest, &length);
    return toHex(digest, length);
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

std::string signInBody(const Sandbox& sandbox, const std::string& username, const std::string& password,
                       const std::string& timestamp)
{
    return jsonObject({{"partner_id", sandbox.partnerId()},
                       {"username", username},
                       {"timestamp", timestamp},
                       {"password", sha1Hex(password + timestamp + sandbox.partnerKey())},
                       {"signature", partnerSignature(sandbox)}});
}

SignedIn signIn(Http& http, const Sandbox& sandbox, const std::string& username, const std::string& password)
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

SignedIn signInAsDemo(Http& http, const Sandbox& sandbox)
{
    const Sandbox::Login login = sandbox.demoLogin();
    return signIn(http, sandbox, login.username, login.password);
}

HttpReply titlesInDetail(Http& http, const Sandbox& sandbox, const SignedIn& session)
{
    return http.get(sandbox.baseUrl() + "titles" + query(changed(session.authQuery(), "view", "detail")));
}

HttpReply createTitle(Http& http, const Sandbox& sandbox, const SignedIn& session, const std::string& name)
{
    const JsonMembers members = session.withAuth({{"name", name}, {"artist_name", "A"}, {"upc", ""}});
    return http.post(sandbox.baseUrl() + "titles", jsonObject(members), "application/json");
}

std::string webLoginUrl(const Sandbox& sandbox, const std::string& username, const std::string& password,
                        long offsetSeconds, const Parameters& more)
{
    const std::string timestamp = clientTimestamp(offsetSeconds);
    Parameters parameters = {{"partner_id", sandbox.partnerId()},
                             {"signature", partnerSignature(sandbox)},
                             {"username", username},
                             {"password", sha1Hex(password + timestamp + sandbox.partnerKey())},
                             {"timestamp", timestamp}};
    for (const auto& [name, value] : more)
        parameters = changed(parameters, name, value);
    return sandbox.loginUrl() + query(parameters);
}

UploadTicket uploadToken(Http& http, const Sandbox& sandbox, const SignedIn& session, int64_t trackId)
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

std::string uploadBodyHead(const std::string& boundary, const Parameters& fields, const std::string& fileName)
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

int statusCode(const std::string& replyBody)
{
    rapidjson::Document document;
    const rapidjson::Value* code = valueAt(document, replyBody, "/status_code");
    return code && code->IsInt() ? code->GetInt() : -1;
}

std::string errorText(const std::string& replyBody)
{
    rapidjson::Document document;
    const rapidjson::Value* error = valueAt(document, replyBody, "/data/error");
    return error && error->IsString() ? error->GetString() : "";
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

std::string readWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace SandboxTesting
