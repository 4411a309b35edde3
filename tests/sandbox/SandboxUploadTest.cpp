// The sandbox's upload target: one-time URLs, the strict check of the multipart body, the stored
// file and its SHA-256, and the completion report.

#include "SandboxFixture.h"

#include <filesystem>


using namespace SandboxTesting;
using SorvelSandbox::Endpoint;

namespace
{

const std::string kUploadBoundary = "----------------------------XXBOUNDARY1A2B";

// A PCM WAV file: 44.1 kHz, stereo, 16 bits, `frames` sample frames of a simple pattern.
std::string wavFile(uint32_t frames)
{
    auto le32 = [](uint32_t value) {
        return std::string{static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
                           static_cast<char>(value >> 24)};
    };
    auto le16 = [](uint16_t value) { return std::string{static_cast<char>(value), static_cast<char>(value >> 8)}; };
    const uint32_t dataBytes = frames * 4;
    std::string file = "RIFF" + le32(36 + dataBytes) + "WAVE" + "fmt " + le32(16) + le16(1) + le16(2) + le32(44100) +
                       le32(44100 * 4) + le16(4) + le16(16) + "data" + le32(dataBytes);
    for (uint32_t i = 0; i < dataBytes; ++i)
        file.push_back(static_cast<char>(i * 7 + (i >> 8)));
    return file;
}

class SandboxUpload : public SandboxTest
{
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        session = signInAsDemo(http, sandbox);
    }

    HttpReply send(const UploadTicket& ticket, const std::string& body,
                   const std::string& contentType = uploadContentType(kUploadBoundary))
    {
        return http.post(ticket.url, body, contentType);
    }

    rapidjson::Document titles()
    {
        auto parameters = session.authQuery();
        parameters.emplace_back("view", "detail");
        return parseJson(http.get(api("titles") + query(parameters)).body);
    }

    HttpReply reportUploaded(int64_t trackId)
    {
        return postJson("tracks/" + std::to_string(trackId) + "/upload_status",
                        with({{"upload_status", int64_t{100}}}, session.authMembers()));
    }

    SignedIn session;
};

} // namespace

TEST_F(SandboxUpload, StoresTheFileOfACorrectBodyAndRecordsItsDigest)
{
    HttpReply raw = http.get(api("tracks/9002/upload_token") + query(session.authQuery()));
    rapidjson::Document token = parseJson(raw.body);
    ASSERT_EQ(statusCode(raw.body), 200) << raw.body;
    const std::string url = token["data"]["url"].GetString();
    EXPECT_EQ(url.rfind(sandbox.baseUrl().substr(0, sandbox.baseUrl().size() - 4) + "upload/", 0), 0u) << url;
    // At least one handed-out field is a number, which the client must send as decimal text.
    EXPECT_TRUE(token["data"]["post_data"]["track_id"].IsInt64());

    const UploadTicket ticket = uploadToken(http, sandbox, session, 9002);
    ASSERT_EQ(ticket.fields.size(), 3u);
    EXPECT_EQ(ticket.fields[1], (std::pair<std::string, std::string>{"track_id", "9002"}));
    const std::string file = wavFile(4410);
    const std::string body = uploadBody(kUploadBoundary, ticket.fields, "Tunnel (final).wav", file);
    HttpReply reply = send(ticket, body);
    EXPECT_EQ(reply.status, 201) << reply.body;

    std::vector<SorvelSandbox::StoredFile> stored = sandbox.storedFiles();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].trackId, 9002);
    EXPECT_EQ(stored[0].accountId, 1001);
    EXPECT_EQ(stored[0].fileName, "Tunnel (final).wav");
    EXPECT_EQ(stored[0].size, file.size());
    EXPECT_EQ(stored[0].sha256, sha256Hex(file));
    EXPECT_EQ(readWholeFile(stored[0].path), file);
    std::vector<SorvelSandbox::LoggedRequest> logged = sandbox.requestLog().entries(Endpoint::Upload);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].bodyBytes, body.size());
    EXPECT_EQ(logged[0].contentType, uploadContentType(kUploadBoundary));
    EXPECT_TRUE(logged[0].error.empty()) << logged[0].error;

    // The track waits for its completion report; the service measured the WAV file's length.
    rapidjson::Document before = titles();
    const rapidjson::Value& track = before["data"][0]["tracks"][1];
    EXPECT_EQ(track["upload_status"].GetInt(), 0);
    EXPECT_DOUBLE_EQ(track["duration"].GetDouble(), 0.1);
    EXPECT_EQ(statusCode(reportUploaded(9002).body), 200);
    EXPECT_EQ(titles()["data"][0]["tracks"][1]["upload_status"].GetInt(), 100);

    // The URL was for one upload only.
    reply = send(ticket, body);
    EXPECT_EQ(reply.status, 410) << reply.body;
    EXPECT_EQ(sandbox.storedFiles().size(), 1u);
}

TEST_F(SandboxUpload, AcceptsAnyValidBoundaryAnEmptyFileAndAUtf8FileName)
{
    const std::string boundaries[] = {"simple", "------------------------d74496d66958873e", "a'()+_,-./:=?b"};
    for (const std::string& boundary : boundaries)
    {
        const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
        HttpReply reply = send(ticket, uploadBody(boundary, ticket.fields, "x.wav", "RIFF"),
                               "multipart/form-data; boundary=\"" + boundary + "\"");
        EXPECT_EQ(reply.status, 201) << boundary << ": " << reply.body;
    }
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9003);
    HttpReply reply = send(ticket, uploadBody(kUploadBoundary, ticket.fields, "S\xC3\xA5ng \xE2\x99\xAB.wav", ""));
    EXPECT_EQ(reply.status, 201) << reply.body;
    const std::vector<SorvelSandbox::StoredFile> stored = sandbox.storedFiles();
    ASSERT_EQ(stored.size(), 4u);
    EXPECT_EQ(stored[3].fileName, "S\xC3\xA5ng \xE2\x99\xAB.wav");
    EXPECT_EQ(stored[3].size, 0u);
    EXPECT_EQ(stored[3].sha256, sha256Hex(""));
}

TEST_F(SandboxUpload, RefusesTamperedBodiesAndLeavesTheUrlOpen)
{
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    const std::string file = wavFile(1000);
    const std::string good = uploadBody(kUploadBoundary, ticket.fields, "a.wav", file);
    const std::string head = uploadBodyHead(kUploadBoundary, ticket.fields, "a.wav");
    const std::string delimiter = "--" + kUploadBoundary + "\r\n";
    const std::string typeField = delimiter + "Content-Disposition: form-data; name=\"Content-Type\"\r\n\r\naudio/x-wav\r\n";
    auto replaced = [](std::string text, const std::string& from, const std::string& to) {
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? text : text.replace(at, from.size(), to);
    };
    auto fields = [&](std::vector<std::pair<std::string, std::string>> changed) {
        return uploadBody(kUploadBoundary, changed, "a.wav", file);
    };
    auto swapped = ticket.fields;
    std::swap(swapped[0], swapped[1]);
    auto wrongValue = ticket.fields;
    wrongValue[1].second = "9002";
    auto extra = ticket.fields;
    extra.emplace_back("acl", "public");
    const auto missing = std::vector<std::pair<std::string, std::string>>(ticket.fields.begin() + 1, ticket.fields.end());
    const std::string trailingPart = delimiter + "Content-Disposition: form-data; name=\"more\"\r\n\r\nx\r\n";

    struct Case
    {
        const char* what;
        std::string body;
        std::string contentType;
        const char* error;
    };
    const std::string multipart = uploadContentType(kUploadBoundary);
    const std::vector<Case> cases = {
        {"wrong field value", fields(wrongValue), multipart, "has the value \"9002\", expected \"9001\""},
        {"fields in another order", fields(swapped), multipart, "but the form field \"key\" was expected"},
        {"a handed-out field missing", fields(missing), multipart, "but the form field \"key\" was expected"},
        {"an extra field", fields(extra), multipart, "\"acl\", but the form field \"Content-Type\" was expected"},
        {"no Content-Type field", replaced(good, typeField, ""), multipart, "the form field \"Content-Type\" was expected"},
        {"another audio type", replaced(good, "audio/x-wav", "audio/wav"), multipart, "expected \"audio/x-wav\""},
        {"no closing delimiter", head + file, multipart, "closing delimiter"},
        {"no CR LF after the closing delimiter", head + file + "\r\n--" + kUploadBoundary + "--", multipart, "CR LF"},
        {"data after the closing delimiter", good + "\r\n", multipart, "follows the closing delimiter"},
        {"a part after the file part", replaced(good, "\r\n--" + kUploadBoundary + "--", "\r\n" + trailingPart.substr(0, trailingPart.size() - 2) + "\r\n--" + kUploadBoundary + "--"),
         multipart, "follows the file part"},
        {"wrong file part type", replaced(good, "Content-Type: application/octet-stream", "Content-Type: audio/x-wav"),
         multipart, "Content-Type: application/octet-stream"},
        {"no transfer encoding", replaced(good, "Content-Transfer-Encoding: binary\r\n", ""), multipart,
         "Content-Transfer-Encoding: binary"},
        {"header on a field part", replaced(good, "name=\"key\"\r\n", "name=\"key\"\r\nContent-Type: text/plain\r\n"),
         multipart, "besides Content-Disposition"},
        {"file part misnamed", replaced(good, "name=\"file\"", "name=\"upload\""), multipart, "expected \"file\""},
        {"file part without file name", replaced(good, "; filename=\"a.wav\"", ""), multipart,
         "the file part was expected"},
        {"bare LF in a header", replaced(good, "name=\"key\"\r\n", "name=\"key\"\n"), multipart, "bare LF"},
        {"a preamble", "preamble\r\n" + good, multipart, "must begin with the delimiter"},
        {"another boundary in the header", good, uploadContentType(kUploadBoundary + "X"), "must begin with the delimiter"},
        {"not multipart", good, "application/octet-stream", "multipart/form-data"},
        {"no boundary", good, "multipart/form-data", "no boundary"},
        {"empty body", "", multipart, "the body is empty"},
    };
    for (const Case& test : cases)
    {
        HttpReply reply = send(ticket, test.body, test.contentType);
        EXPECT_EQ(reply.status, 400) << test.what;
        EXPECT_NE(reply.body.find(test.error), std::string::npos) << test.what << ": " << reply.body;
    }
    EXPECT_TRUE(sandbox.storedFiles().empty());
    // Nothing was stored and the URL is still open for the correct body.
    HttpReply reply = send(ticket, good);
    EXPECT_EQ(reply.status, 201) << reply.body;
    ASSERT_EQ(sandbox.storedFiles().size(), 1u);
    EXPECT_EQ(sandbox.storedFiles()[0].sha256, sha256Hex(file));
}

TEST_F(SandboxUpload, FileBytesThatResembleTheDelimiterArriveIntact)
{
    // Everything here starts like the delimiter but is not one.
    const std::string file = "\r\n--" + kUploadBoundary.substr(0, kUploadBoundary.size() - 1) + "X\r\n--\r\n-" + "\r\n--" +
                             kUploadBoundary.substr(0, 10) + std::string(100000, '\r') + "\r\n-";
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    HttpReply reply = send(ticket, uploadBody(kUploadBoundary, ticket.fields, "edge.wav", file));
    EXPECT_EQ(reply.status, 201) << reply.body;
    ASSERT_EQ(sandbox.storedFiles().size(), 1u);
    EXPECT_EQ(readWholeFile(sandbox.storedFiles()[0].path), file);
}

TEST_F(SandboxUpload, UploadUrlsAndReportsBelongToTheirTrack)
{
    EXPECT_EQ(statusCode(reportUploaded(9003).body), 409);
    HttpReply reply = http.post(sandbox.baseUrl().substr(0, sandbox.baseUrl().size() - 4) + "upload/" +
                                    std::string(32, 'f'),
                                uploadBody(kUploadBoundary, {}, "a.wav", "x"), uploadContentType(kUploadBoundary));
    EXPECT_EQ(reply.status, 404);

    const UploadTicket ticket = uploadToken(http, sandbox, session, 9003);
    EXPECT_EQ(send(ticket, uploadBody(kUploadBoundary, ticket.fields, "a.wav", "abc")).status, 201);
    EXPECT_EQ(sandbox.storedFiles().at(0).trackId, 9003);
    EXPECT_EQ(statusCode(reportUploaded(9003).body), 200);
    EXPECT_EQ(statusCode(reportUploaded(424242).body), 404);
    reply = postJson("tracks/9003/upload_status", with({{"upload_status", int64_t{50}}}, session.authMembers()));
    EXPECT_EQ(statusCode(reply.body), 400);
    reply = postJson("tracks/9003/upload_status", with({{"upload_status", std::string("100")}}, session.authMembers()));
    EXPECT_EQ(statusCode(reply.body), 400);
}

namespace
{

class SandboxExpiredUploads : public SandboxUpload
{
protected:
    SorvelSandbox::Sandbox::Options options() override
    {
        SorvelSandbox::Sandbox::Options options;
        options.uploadUrlLifetime = std::chrono::seconds(0);
        return options;
    }
};

class SandboxDiscardingUploads : public SandboxUpload
{
protected:
    SorvelSandbox::Sandbox::Options options() override
    {
        SorvelSandbox::Sandbox::Options options;
        options.discardUploads = true;
        return options;
    }
};

} // namespace

TEST_F(SandboxDiscardingUploads, AFileIsCheckedAndCountedButNotStored)
{
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9002);
    const std::string file = wavFile(4410);
    HttpReply reply = send(ticket, uploadBody(kUploadBoundary, ticket.fields, "kept nowhere.wav", file));
    EXPECT_EQ(reply.status, 201) << reply.body;
    std::vector<SorvelSandbox::StoredFile> stored = sandbox.storedFiles();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].size, file.size());
    EXPECT_EQ(stored[0].sha256, "discarded");
    EXPECT_FALSE(std::filesystem::exists(stored[0].path)) << stored[0].path;
    EXPECT_DOUBLE_EQ(titles()["data"][0]["tracks"][1]["duration"].GetDouble(), 0.1) << "the WAV header was read";

    // A tampered body is refused as usual.
    const UploadTicket second = uploadToken(http, sandbox, session, 9001);
    std::string body = uploadBody(kUploadBoundary, second.fields, "b.wav", file);
    body.resize(body.size() - 10);
    EXPECT_EQ(send(second, body).status, 400);
    EXPECT_EQ(sandbox.storedFiles().size(), 1u);
}

TEST_F(SandboxExpiredUploads, AnExpiredUploadUrlIsRefused)
{
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    HttpReply reply = send(ticket, uploadBody(kUploadBoundary, ticket.fields, "a.wav", "abc"));
    EXPECT_EQ(reply.status, 403);
    EXPECT_NE(reply.body.find("expired"), std::string::npos);
    EXPECT_TRUE(sandbox.storedFiles().empty());
}
