// Sign-in, signed requests, the catalogue requests and the web login page of the sandbox, driven
// over HTTP with libcurl.

#include "SandboxFixture.h"

#include <regex>

using namespace SandboxTesting;
using SorvelSandbox::Endpoint;

using SandboxSession = SandboxTest;

TEST_F(SandboxSession, AcceptsACorrectSessionAndHandsOutItsOwnTimestamp)
{
    const std::string sent = clientTimestamp();
    HttpReply reply = http.post(api("users/auth/token"), signInBody(sandbox, "demo", "sandbox-demo", sent),
                                "application/json");
    ASSERT_EQ(reply.status, 200);
    ASSERT_EQ(statusCode(reply.body), 200) << reply.body;
    rapidjson::Document document = parseJson(reply.body);
    const rapidjson::Value& data = document["data"];
    EXPECT_EQ(data["token"].GetStringLength(), 32u);
    // The account id is a number, and the timestamp is in a form of the service's own.
    EXPECT_EQ(data["account_id"].GetInt64(), 1001);
    const std::string timestamp = data["timestamp"].GetString();
    EXPECT_TRUE(std::regex_match(timestamp, std::regex(R"(\d{8}T\d{6}Z-[0-9a-f]{8})"))) << timestamp;
    EXPECT_NE(timestamp, sent);

    // The raw sign-in body is logged, so a client test can check the order of its members.
    std::vector<SorvelSandbox::LoggedRequest> logged = sandbox.requestLog().entries(Endpoint::SignIn);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].memberNames,
              (std::vector<std::string>{"partner_id", "username", "timestamp", "password", "signature"}));
    EXPECT_EQ(logged[0].body, signInBody(sandbox, "demo", "sandbox-demo", sent));
    EXPECT_EQ(logged[0].statusCode, 200);

    SignedIn session{data["token"].GetString(), timestamp, "1001", sandbox.partnerId()};
    reply = http.get(api("users/1001/activity") + query(session.authQuery()));
    EXPECT_EQ(statusCode(reply.body), 200) << reply.body;
    document = parseJson(reply.body);
    EXPECT_EQ(document["data"]["name"].GetString(), std::string("Demo Artist"));
    EXPECT_EQ(document["data"]["total_fans"].GetInt64(), 12345);
    EXPECT_DOUBLE_EQ(document["data"]["total_sales"].GetDouble(), 57.5);
    EXPECT_EQ(document["data"]["total_Products"].GetInt64(), 3);

    // Ids, numbers and years of the detailed view are checked on created tracks and the duration by
    // the upload tests; the demo catalogue adds the UPC and the text members.
    reply = titlesInDetail(http, sandbox, session);
    ASSERT_EQ(statusCode(reply.body), 200) << reply.body;
    document = parseJson(reply.body);
    ASSERT_TRUE(document["data"].IsArray());
    ASSERT_EQ(document["data"].Size(), 3u);
    EXPECT_EQ(document["data"][0]["upc"].GetString(), std::string("0123456789012"));
    const rapidjson::Value& track = document["data"][0]["tracks"][0];
    for (const char* name : {"name", "isrc", "genre", "comment", "arranger", "composer", "songwriter"})
        EXPECT_TRUE(track[name].IsString()) << name;
}

// The digests are checked against values computed with coreutils (md5sum, sha1sum), so that the
// service cannot agree with a client merely because both call the same library the same wrong way.
class SandboxKnownDigests : public SandboxSession
{
protected:
    SorvelSandbox::Sandbox::Options options() override
    {
        SorvelSandbox::Sandbox::Options options;
        options.timestampTolerance = std::chrono::hours(24 * 365 * 100);
        return options;
    }
};

TEST_F(SandboxKnownDigests, AcceptsTheSignatureAndDigestOfKnownInputs)
{
    const std::string body = jsonObject({{"partner_id", "sorvel-sandbox"},
                                         {"username", "demo"},
                                         {"timestamp", "2014-03-07T18:05:09"},
                                         {"password", "0808fc77d7af685377862b9112075d93290600f5"},
                                         {"signature", "413078f2a6a4c67d44bb595b8d51b12f"}});
    HttpReply reply = http.post(api("users/auth/token"), body, "application/json");
    EXPECT_EQ(statusCode(reply.body), 200) << reply.body;
}

TEST_F(SandboxSession, SignInRefusesEveryWrongCredentialAndMalformedBody)
{
    const std::string now = clientTimestamp();
    const std::string key = sandbox.partnerKey();
    const std::string signature = partnerSignature(sandbox);
    const std::string digest = sha1Hex("sandbox-demo" + now + key);
    auto body = [&](std::string partner, std::string user, std::string timestamp, std::string password,
                    std::string sign) {
        return jsonObject({{"partner_id", partner},
                           {"username", user},
                           {"timestamp", timestamp},
                           {"password", password},
                           {"signature", sign}});
    };
    std::string upper = signature;
    for (char& c : upper)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const std::string stale = clientTimestamp(-3600);
    const std::string ahead = clientTimestamp(3600);

    struct Case
    {
        const char* what;
        std::string body;
        std::string contentType;
        int status;
        const char* error;
    };
    const std::vector<Case> cases = {
        {"upper-case signature", body("sorvel-sandbox", "demo", now, digest, upper), "application/json", 401,
         "lower-case"},
        {"signature over the key only", body("sorvel-sandbox", "demo", now, digest, md5Hex(key)), "application/json",
         401, "signature"},
        {"unknown partner", body("other", "demo", now, digest, signature), "application/json", 401, "partner_id"},
        {"wrong password", body("sorvel-sandbox", "demo", now, sha1Hex("wrong" + now + key), signature),
         "application/json", 401, "password digest"},
        {"digest of another timestamp", body("sorvel-sandbox", "demo", now, sha1Hex("sandbox-demo" + stale + key), signature),
         "application/json", 401, "password digest"},
        {"digest without the key", body("sorvel-sandbox", "demo", now, sha1Hex("sandbox-demo" + now), signature),
         "application/json", 401, "password digest"},
        {"user name in other case", body("sorvel-sandbox", "Demo", now, digest, signature), "application/json", 401,
         "username"},
        {"stale timestamp", body("sorvel-sandbox", "demo", stale, sha1Hex("sandbox-demo" + stale + key), signature),
         "application/json", 401, "seconds away"},
        {"timestamp ahead", body("sorvel-sandbox", "demo", ahead, sha1Hex("sandbox-demo" + ahead + key), signature),
         "application/json", 401, "seconds away"},
        {"timestamp with zone", body("sorvel-sandbox", "demo", now + "Z", sha1Hex("sandbox-demo" + now + "Z" + key), signature),
         "application/json", 400, "YYYY-MM-DDTHH:MM:SS"},
        {"impossible date", body("sorvel-sandbox", "demo", "2014-02-30T10:00:00", digest, signature),
         "application/json", 400, "YYYY-MM-DDTHH:MM:SS"},
        {"missing signature",
         jsonObject({{"partner_id", "sorvel-sandbox"}, {"username", "demo"}, {"timestamp", now}, {"password", digest}}),
         "application/json", 400, "\"signature\" is missing"},
        {"signature as a number",
         jsonObject({{"partner_id", "sorvel-sandbox"}, {"username", "demo"}, {"timestamp", now}, {"password", digest},
                     {"signature", int64_t{7}}}),
         "application/json", 400, "must be a string"},
        {"extra member",
         jsonObject({{"partner_id", "sorvel-sandbox"}, {"username", "demo"}, {"timestamp", now}, {"password", digest},
                     {"signature", signature}, {"token", "x"}}),
         "application/json", 400, "not expected"},
        {"repeated member",
         "{\"partner_id\":\"sorvel-sandbox\",\"username\":\"demo\",\"username\":\"demo\",\"timestamp\":\"" + now +
             "\",\"password\":\"" + digest + "\",\"signature\":\"" + signature + "\"}",
         "application/json", 400, "appears twice"},
        {"not JSON", "partner_id=sorvel-sandbox&username=demo", "application/json", 400, "not valid JSON"},
        {"trailing garbage", body("sorvel-sandbox", "demo", now, digest, signature) + "}", "application/json", 400,
         "not valid JSON"},
        {"form encoded", body("sorvel-sandbox", "demo", now, digest, signature), "application/x-www-form-urlencoded",
         415, "application/json"},
    };
    for (const Case& test : cases)
    {
        HttpReply reply = http.post(api("users/auth/token"), test.body, test.contentType);
        EXPECT_EQ(reply.status, 200) << test.what;
        EXPECT_EQ(statusCode(reply.body), test.status) << test.what << ": " << reply.body;
        EXPECT_NE(errorText(reply.body).find(test.error), std::string::npos) << test.what << ": " << reply.body;
        EXPECT_EQ(reply.body.find("\"token\""), std::string::npos) << test.what;
        // Refusals never repeat the secrets that were sent.
        EXPECT_EQ(reply.body.find(digest), std::string::npos) << test.what;
    }
    // The same body with the right values is accepted, so the refusals above were about the one fault.
    HttpReply reply = http.post(api("users/auth/token"), body("sorvel-sandbox", "demo", now, digest, signature),
                                "application/json");
    EXPECT_EQ(statusCode(reply.body), 200) << reply.body;
}

TEST_F(SandboxSession, SignedRequestsNeedTheTokenWithItsTimestampAndAccount)
{
    const SignedIn session = signInAsDemo(http, sandbox);
    auto titles = [&](const Parameters& parameters) {
        return http.get(api("titles") + query(changed(parameters, "view", "detail")));
    };
    EXPECT_EQ(statusCode(titles(session.authQuery()).body), 200);

    // Also the very same pair twice, which some query parsers fold into one.
    auto tokenTwice = session.authQuery();
    tokenTwice.emplace_back("token", session.token);
    auto otherTokenToo = session.authQuery();
    otherTokenToo.insert(otherTokenToo.begin(), {"token", std::string(32, 'b')});
    struct Case
    {
        const char* what;
        Parameters parameters;
        int status;
        const char* error;
    };
    const Parameters auth = session.authQuery();
    const std::vector<Case> cases = {
        {"unknown token", changed(auth, "token", std::string(32, 'a')), 403, "unknown token"},
        {"a fresh client timestamp", changed(auth, "timestamp", clientTimestamp()), 403, "timestamp"},
        {"another account", changed(auth, "account_id", "1002"), 403, "account_id"},
        {"another partner", changed(auth, "partner_id", "other"), 403, "partner_id"},
        {"no token", {{"timestamp", session.timestamp}, {"account_id", "1001"}, {"partner_id", session.partnerId}}, 400,
         "\"token\" is missing"},
        {"token twice", tokenTwice, 400, "more than once"},
        {"an old token before the new one", otherTokenToo, 400, "more than once"},
    };
    for (const Case& test : cases)
    {
        HttpReply reply = titles(test.parameters);
        EXPECT_EQ(statusCode(reply.body), test.status) << test.what << ": " << reply.body;
        EXPECT_NE(errorText(reply.body).find(test.error), std::string::npos) << test.what << ": " << reply.body;
    }

    // Expiry: one token, then all of them.
    const SignedIn second = signInAsDemo(http, sandbox);
    EXPECT_NE(second.token, session.token);
    EXPECT_TRUE(sandbox.expireToken(session.token));
    HttpReply reply = titles(session.authQuery());
    EXPECT_EQ(statusCode(reply.body), 403);
    EXPECT_EQ(errorText(reply.body), "the token has expired");
    EXPECT_EQ(statusCode(titles(second.authQuery()).body), 200);
    sandbox.expireSessions();
    EXPECT_EQ(statusCode(titles(second.authQuery()).body), 403);
    reply = http.get(api("tracks/9001/upload_token") + query(second.authQuery()));
    EXPECT_EQ(statusCode(reply.body), 403);
    EXPECT_FALSE(sandbox.expireToken("no such token"));
}

TEST_F(SandboxSession, ActivityAnswersTheAccountAndTheSignedOutCase)
{
    const SignedIn session = signInAsDemo(http, sandbox);
    HttpReply reply = http.get(api("users/1002/activity") + query(session.authQuery()));
    EXPECT_EQ(statusCode(reply.body), 403) << reply.body;
    // Callers may add their own parameters to the activity request.
    reply = http.get(api("users/1001/activity") + query(changed(session.authQuery(), "period", "30")));
    EXPECT_EQ(statusCode(reply.body), 200) << reply.body;

    const std::string signature = partnerSignature(sandbox);
    reply = postJson("users/0/activity", {{"partner_id", sandbox.partnerId()}, {"signature", signature}, {"lang", "en"}});
    ASSERT_EQ(statusCode(reply.body), 200) << reply.body;
    rapidjson::Document document = parseJson(reply.body);
    EXPECT_EQ(document["data"]["account_id"].GetInt64(), 0);
    EXPECT_EQ(document["data"]["action_link"].GetString(), sandbox.loginUrl());

    reply = postJson("users/0/activity", {{"partner_id", sandbox.partnerId()}, {"signature", md5Hex("x")}});
    EXPECT_EQ(statusCode(reply.body), 401) << reply.body;
    reply = postJson("users/0/activity",
                     {{"partner_id", sandbox.partnerId()}, {"signature", signature}, {"token", session.token}});
    EXPECT_EQ(statusCode(reply.body), 400) << reply.body;
    reply = http.post(api("users/0/activity"),
                      "{\"partner_id\":\"sorvel-sandbox\",\"signature\":\"" + signature + "\",\"extra\":{}}",
                      "application/json");
    EXPECT_EQ(statusCode(reply.body), 400) << reply.body;
}

TEST_F(SandboxSession, CreatesTitlesAndTracksOnlyFromCompleteWellTypedRequests)
{
    const SignedIn session = signInAsDemo(http, sandbox);
    HttpReply reply = createTitle(http, sandbox, session, "New EP");
    ASSERT_EQ(statusCode(reply.body), 200) << reply.body;
    const int64_t titleId = parseJson(reply.body)["data"]["id"].GetInt64();
    EXPECT_EQ(statusCode(postJson("titles", session.withAuth({{"name", "No artist"}, {"upc", ""}})).body), 400);

    const JsonMembers track = {{"name", "Opening"}, {"isrc", "QZDEM2600001"}, {"year", int64_t{2026}},
                               {"genre", "Pop"},    {"comment", "c"},             {"arranger", "a"},
                               {"composer", "b"},   {"songwriter", "s"},          {"title_id", std::to_string(titleId)}};
    auto replaced = [&](const std::string& name, const JsonValue& value) {
        return session.withAuth(changed(track, name, value));
    };
    struct Case
    {
        const char* what;
        JsonMembers members;
        int status;
    };
    JsonMembers withoutGenre = track;
    withoutGenre.erase(withoutGenre.begin() + 3);
    const std::vector<Case> refused = {
        {"year 0 (an unknown year is left out)", replaced("year", int64_t{0}), 400},
        {"year as text", replaced("year", std::string("2026")), 400},
        {"title id as a number", replaced("title_id", titleId), 400},
        {"unknown title", replaced("title_id", std::string("4999")), 404},
        {"title id that is no number", replaced("title_id", std::string("0x1")), 404},
        {"missing genre", session.withAuth(withoutGenre), 400},
        {"track number is the service's", replaced("track_number", int64_t{3}), 400},
        {"no authorization", track, 400},
    };
    for (const Case& test : refused)
        EXPECT_EQ(statusCode(postJson("tracks", test.members).body), test.status) << test.what;

    reply = postJson("tracks", session.withAuth(track));
    ASSERT_EQ(statusCode(reply.body), 200) << reply.body;
    const int64_t trackId = parseJson(reply.body)["data"]["id"].GetInt64();
    JsonMembers noYear = track;
    noYear.erase(noYear.begin() + 2);
    reply = postJson("tracks", session.withAuth(noYear));
    ASSERT_EQ(statusCode(reply.body), 200) << reply.body;

    // Only the two accepted tracks exist, numbered by the service, with the fields as sent.
    rapidjson::Document titles = parseJson(titlesInDetail(http, sandbox, session).body);
    const rapidjson::Value& created = titles["data"][3];
    EXPECT_EQ(created["id"].GetInt64(), titleId);
    EXPECT_EQ(created["name"].GetString(), std::string("New EP"));
    ASSERT_EQ(created["tracks"].Size(), 2u);
    EXPECT_EQ(created["tracks"][0]["id"].GetInt64(), trackId);
    EXPECT_EQ(created["tracks"][0]["track_number"].GetInt(), 1);
    EXPECT_EQ(created["tracks"][0]["year"].GetInt(), 2026);
    EXPECT_EQ(created["tracks"][0]["songwriter"].GetString(), std::string("s"));
    EXPECT_EQ(created["tracks"][1]["track_number"].GetInt(), 2);
    EXPECT_EQ(created["tracks"][1]["year"].GetInt(), 0);

    for (const Parameters& parameters : {changed(session.authQuery(), "view", "summary"), session.authQuery()})
        EXPECT_EQ(statusCode(http.get(api("titles") + query(parameters)).body), 400);
}

TEST_F(SandboxSession, UnknownResourcesAnswer404)
{
    HttpReply reply = http.get(api("no/such/thing"));
    EXPECT_EQ(reply.status, 404);
    EXPECT_EQ(statusCode(reply.body), 404);
    reply = http.post(api("users/auth/token/extra"), "{}", "application/json");
    EXPECT_EQ(reply.status, 404);
    reply = http.get(sandbox.baseUrl().substr(0, sandbox.baseUrl().size() - 4) + "elsewhere");
    EXPECT_EQ(reply.status, 404);
    const SignedIn session = signInAsDemo(http, sandbox);
    reply = http.get(api("tracks/123456/upload_token") + query(session.authQuery()));
    EXPECT_EQ(statusCode(reply.body), 404);
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::Unknown).size(), 3u);
}

TEST_F(SandboxSession, WebLoginShowsTheAccountOrTheProductPage)
{
    auto loginUrl = [&](const Parameters& more = {}, const std::string& password = "sandbox-demo", long offset = 0) {
        return webLoginUrl(sandbox, "demo", password, offset, more);
    };
    HttpReply reply = http.get(loginUrl());
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.body.find("<h1>Demo Artist</h1>"), std::string::npos) << reply.body;
    EXPECT_NE(reply.body.find("Field Recordings"), std::string::npos);

    reply = http.get(loginUrl({{"open_title", "5002"}}));
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.body.find("<h1>Field Recordings</h1>"), std::string::npos) << reply.body;
    EXPECT_NE(reply.body.find("Rain on Tin 5:01"), std::string::npos) << reply.body;
    EXPECT_EQ(reply.body.find("Night Drive"), std::string::npos);

    struct Case
    {
        const char* what;
        std::string url;
        long status;
    };
    const std::vector<Case> refused = {
        {"unknown product", loginUrl({{"open_title", "5999"}}), 404},
        {"wrong signature", loginUrl({{"signature", md5Hex("x")}}), 403},
        {"wrong password", loginUrl({}, "other"), 403},
        {"stale timestamp", loginUrl({}, "sandbox-demo", -7200), 403},
        {"unknown parameter", loginUrl({{"next", "/"}}), 400},
        {"no parameters", sandbox.loginUrl(), 400},
    };
    for (const Case& test : refused)
    {
        reply = http.get(test.url);
        EXPECT_EQ(reply.status, test.status) << test.what << ": " << reply.body;
        EXPECT_NE(reply.body.find("Login refused"), std::string::npos) << test.what;
        EXPECT_EQ(reply.body.find("Demo Artist"), std::string::npos) << test.what;
    }
}
