// Fault injection: each fault does what it says, on the request it was armed for, and a fault that
// refuses a request leaves the service's state unchanged; requests held for a test to act while
// they wait; a failing link that resets every nth connection; the count of confirmed uploads.

#include "SandboxFixture.h"

#include <algorithm>
#include <future>
#include <map>
#include <stdexcept>

using namespace SandboxTesting;
using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

namespace
{

const std::string kFaultBoundary = "----------------------------XXBOUNDARY7FFF";

class SandboxFault : public SandboxTest
{
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        session = signInAsDemo(http, sandbox);
    }

    HttpReply titles() { return titlesInDetail(http, sandbox, session); }
    HttpReply create(const std::string& name) { return createTitle(http, sandbox, session, name); }

    size_t titleCount() const { return sandbox.accounts().at(0).titles.size(); }

    SignedIn session;
};

} // namespace

TEST_F(SandboxFault, StatusCodesHitTheNthRequestOfTheirEndpointOnly)
{
    sandbox.injectFault(Endpoint::Titles, Fault::statusCode(403), 2);
    sandbox.injectFault(Endpoint::CreateTitle, Fault::statusCode(500));
    HttpReply reply = titles();
    EXPECT_EQ(statusCode(reply.body), 200);
    // Requests to other endpoints do not count towards the titles' second request.
    EXPECT_EQ(statusCode(http.get(api("users/1001/activity") + query(session.authQuery())).body), 200);
    reply = titles();
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(statusCode(reply.body), 403);
    EXPECT_EQ(statusCode(titles().body), 200);

    const size_t before = titleCount();
    reply = create("Refused");
    EXPECT_EQ(statusCode(reply.body), 500);
    EXPECT_EQ(titleCount(), before);
    EXPECT_EQ(statusCode(create("Accepted").body), 200);
    EXPECT_EQ(titleCount(), before + 1);

    // A fault armed for several requests covers exactly those.
    sandbox.injectFault(Endpoint::Titles, Fault::statusCode(500), 1, 2);
    EXPECT_EQ(statusCode(titles().body), 500);
    EXPECT_EQ(statusCode(titles().body), 500);
    EXPECT_EQ(statusCode(titles().body), 200);
    std::vector<SorvelSandbox::LoggedRequest> logged = sandbox.requestLog().entries(Endpoint::Titles);
    ASSERT_EQ(logged.size(), 6u);
    EXPECT_EQ(logged[1].fault, Fault::Kind::StatusCode);
    EXPECT_FALSE(logged[2].fault.has_value());
}

TEST_F(SandboxFault, SpoiledBodiesReachTheClientWhileTheRequestTakesEffect)
{
    const std::string normal = titles().body;
    sandbox.injectFault(Endpoint::Titles, Fault::invalidBody());
    sandbox.injectFault(Endpoint::Titles, Fault::emptyBody(), 2);
    sandbox.injectFault(Endpoint::Titles, Fault::truncatedBody(), 3);

    HttpReply invalid = titles();
    EXPECT_EQ(invalid.status, 200);
    EXPECT_EQ(statusCode(invalid.body), -1);
    rapidjson::Document document;
    document.Parse(invalid.body.c_str());
    EXPECT_TRUE(document.HasParseError()) << invalid.body;
    HttpReply empty = titles();
    EXPECT_EQ(empty.status, 200);
    EXPECT_TRUE(empty.body.empty());
    HttpReply truncated = titles();
    EXPECT_EQ(truncated.body, normal.substr(0, normal.size() / 2));
    EXPECT_EQ(titles().body, normal);

    const size_t before = titleCount();
    sandbox.injectFault(Endpoint::CreateTitle, Fault::truncatedBody());
    HttpReply created = create("Lost reply");
    EXPECT_EQ(statusCode(created.body), -1);
    EXPECT_EQ(titleCount(), before + 1);
}

TEST_F(SandboxFault, ADelayHoldsTheReplyBack)
{
    sandbox.injectFault(Endpoint::Activity, Fault::delayed(std::chrono::milliseconds(300)));
    const auto start = std::chrono::steady_clock::now();
    HttpReply reply = http.get(api("users/1001/activity") + query(session.authQuery()));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(statusCode(reply.body), 200);
}

TEST_F(SandboxFault, ADroppedConnectionGetsNoReplyAndChangesNothing)
{
    sandbox.injectFault(Endpoint::CreateTitle, Fault::dropConnection());
    const size_t before = titleCount();
    const size_t logged = sandbox.requestLog().size();
    // A fresh connection: on a reused one libcurl would quietly send the request again.
    Http fresh;
    HttpReply reply = createTitle(fresh, sandbox, session, "Dropped");
    EXPECT_NE(reply.result, CURLE_OK);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(titleCount(), before);
    // The client may see the reset before the server has logged the request.
    ASSERT_TRUE(sandbox.requestLog().waitForSize(logged + 1, std::chrono::seconds(10)));
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::CreateTitle).at(0).fault, Fault::Kind::DropConnection);
    EXPECT_EQ(statusCode(create("Kept").body), 200);
}

TEST_F(SandboxFault, TheUploadTargetAnswersTheChosenHttpStatus)
{
    struct Case
    {
        int status;
        bool stored;
    };
    for (const Case test : {Case{302, true}, Case{399, true}, Case{400, false}, Case{500, false}})
    {
        const size_t before = sandbox.storedFiles().size();
        const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
        const std::string body = uploadBody(kFaultBoundary, ticket.fields, "f.wav", "data");
        sandbox.injectFault(Endpoint::Upload, Fault::httpStatus(test.status));
        HttpReply reply = http.post(ticket.url, body, uploadContentType(kFaultBoundary));
        EXPECT_EQ(reply.status, test.status);
        EXPECT_EQ(sandbox.storedFiles().size(), before + (test.stored ? 1 : 0)) << test.status;
        // A refusal leaves the URL open; an accepted upload used it up.
        EXPECT_EQ(http.post(ticket.url, body, uploadContentType(kFaultBoundary)).status, test.stored ? 410 : 201)
            << test.status;
    }
}

TEST_F(SandboxFault, TheUploadTargetDropsTheConnectionInMidBody)
{
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    const std::string file(4 << 20, 'a');
    const std::string body = uploadBody(kFaultBoundary, ticket.fields, "f.wav", file);
    sandbox.injectFault(Endpoint::Upload, Fault::dropConnection());
    const size_t logged0 = sandbox.requestLog().size();
    HttpReply reply = Http().post(ticket.url, body, uploadContentType(kFaultBoundary));
    EXPECT_NE(reply.result, CURLE_OK);
    // No final reply: at most the interim "100 Continue".
    EXPECT_LT(reply.status, 200);
    // The client may see the reset before the server has logged the request.
    ASSERT_TRUE(sandbox.requestLog().waitForSize(logged0 + 1, std::chrono::seconds(10)));
    std::vector<SorvelSandbox::LoggedRequest> logged = sandbox.requestLog().entries(Endpoint::Upload);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_GE(logged[0].bodyBytes, body.size() / 2);
    EXPECT_LT(logged[0].bodyBytes, body.size());
    EXPECT_TRUE(sandbox.storedFiles().empty());

    sandbox.injectFault(Endpoint::Upload, Fault::dropConnection(1000));
    reply = Http().post(ticket.url, body, uploadContentType(kFaultBoundary));
    EXPECT_NE(reply.result, CURLE_OK);
    ASSERT_TRUE(sandbox.requestLog().waitForSize(logged0 + 2, std::chrono::seconds(10)));
    EXPECT_LT(sandbox.requestLog().entries(Endpoint::Upload).at(1).bodyBytes, body.size() / 2);

    // A target that reads none of a 4 MB body: nothing is received, the connection closes.
    sandbox.injectFault(Endpoint::Upload, Fault::stopReading(std::chrono::milliseconds(300)));
    reply = Http().post(ticket.url, body, uploadContentType(kFaultBoundary));
    EXPECT_NE(reply.result, CURLE_OK);
    ASSERT_TRUE(sandbox.requestLog().waitForSize(logged0 + 3, std::chrono::seconds(10)));
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::Upload).at(2).bodyBytes, 0u);
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::Upload).at(2).fault, Fault::Kind::StopReading);
    EXPECT_TRUE(sandbox.storedFiles().empty());

    // The broken uploads left no file behind and the URL open.
    EXPECT_EQ(http.post(ticket.url, body, uploadContentType(kFaultBoundary)).status, 201);
    ASSERT_EQ(sandbox.storedFiles().size(), 1u);
    EXPECT_EQ(sandbox.storedFiles()[0].size, file.size());
}

TEST_F(SandboxFault, WebLoginFaultsAndFaultsThatCannotBeShownAreRefused)
{
    sandbox.injectFault(Endpoint::WebLogin, Fault::httpStatus(503));
    EXPECT_EQ(http.get(sandbox.loginUrl()).status, 503);
    EXPECT_EQ(http.get(sandbox.loginUrl()).status, 400);

    EXPECT_THROW(sandbox.injectFault(Endpoint::Upload, Fault::statusCode(403)), std::invalid_argument);
    EXPECT_THROW(sandbox.injectFault(Endpoint::WebLogin, Fault::invalidBody()), std::invalid_argument);
    EXPECT_THROW(sandbox.injectFault(Endpoint::Titles, Fault::httpStatus(700)), std::invalid_argument);
    EXPECT_THROW(sandbox.injectFault(Endpoint::Titles, Fault::stopReading(std::chrono::milliseconds(100))),
                 std::invalid_argument);
    EXPECT_THROW(sandbox.injectFault(Endpoint::Upload, Fault::stopReading(std::chrono::milliseconds(0))),
                 std::invalid_argument);
    EXPECT_THROW(sandbox.injectFault(Endpoint::Titles, Fault::delayed(std::chrono::milliseconds(0))),
                 std::invalid_argument);
    EXPECT_THROW(sandbox.injectFault(Endpoint::Titles, Fault::statusCode(500), 0), std::invalid_argument);

    sandbox.injectFault(Endpoint::Titles, Fault::statusCode(500));
    sandbox.clearFaults();
    EXPECT_EQ(statusCode(titles().body), 200);
}

namespace
{

bool heldBy(const SorvelSandbox::LoggedRequest& entry, Fault::Kind kind)
{
    return entry.fault == kind && entry.httpStatus == 0;
}

} // namespace

TEST_F(SandboxFault, AHeldRequestIsAnsweredNeverAndTakesEffectOnlyWhenItsReplyIsHeld)
{
    struct Case
    {
        Fault fault;
        size_t titlesAdded;
        int loggedStatus; // the envelope's status_code the request was given, 0 when none
    };
    for (const Case& test : {Case{Fault::holdRequest(std::chrono::seconds(30)), 0, 0},
                             Case{Fault::holdReply(std::chrono::seconds(30)), 1, 200}})
    {
        SCOPED_TRACE(test.fault.kind == Fault::Kind::HoldRequest ? "request held" : "reply held");
        sandbox.requestLog().clear();
        const size_t before = titleCount();
        sandbox.injectFault(Endpoint::CreateTitle, test.fault);
        auto reply = std::async(std::launch::async, [&] {
            Http fresh;
            return createTitle(fresh, sandbox, session, "Held");
        });
        // Logged while it is held, so that a test can act at that moment: here the client waits.
        ASSERT_TRUE(sandbox.requestLog().waitFor(
            [&](const SorvelSandbox::LoggedRequest& entry) { return heldBy(entry, test.fault.kind); },
            std::chrono::seconds(10)));
        EXPECT_EQ(reply.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout) << "answered";
        EXPECT_EQ(titleCount(), before + test.titlesAdded);
        EXPECT_EQ(sandbox.requestLog().entries(Endpoint::CreateTitle).at(0).statusCode, test.loggedStatus);

        sandbox.releaseHeld();
        ASSERT_EQ(reply.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "still held";
        const HttpReply answer = reply.get();
        EXPECT_NE(answer.result, CURLE_OK);
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(titleCount(), before + test.titlesAdded);
        EXPECT_EQ(sandbox.requestLog().entries(Endpoint::CreateTitle).size(), 1u) << "logged once";
    }

    // Unreleased, a hold ends when its time has passed.
    sandbox.injectFault(Endpoint::Titles, Fault::holdRequest(std::chrono::milliseconds(300)));
    const auto start = std::chrono::steady_clock::now();
    Http fresh;
    const HttpReply ended = titlesInDetail(fresh, sandbox, session);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_NE(ended.result, CURLE_OK);
    EXPECT_EQ(statusCode(titles().body), 200) << "the next request is answered";
    EXPECT_THROW(sandbox.injectFault(Endpoint::Titles, Fault::holdReply(std::chrono::milliseconds(0))),
                 std::invalid_argument);
}

TEST_F(SandboxFault, AFilePostIsHeldInMidBodyOrOnceTheFileIsStored)
{
    const std::string file(4 << 20, 'h');
    auto postHeld = [&](const UploadTicket& ticket, const Fault& fault, SorvelSandbox::LoggedRequest& held) {
        sandbox.requestLog().clear();
        sandbox.injectFault(Endpoint::Upload, fault);
        auto reply = std::async(std::launch::async, [&] {
            return Http().post(ticket.url, uploadBody(kFaultBoundary, ticket.fields, "f.wav", file),
                               uploadContentType(kFaultBoundary));
        });
        EXPECT_TRUE(sandbox.requestLog().waitFor(
            [&](const SorvelSandbox::LoggedRequest& entry) { return heldBy(entry, fault.kind); },
            std::chrono::seconds(10)));
        EXPECT_EQ(reply.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout) << "answered";
        held = sandbox.requestLog().entries(Endpoint::Upload).at(0);
        return reply;
    };

    // In the middle of the body: nothing more is read and nothing is stored.
    UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    SorvelSandbox::LoggedRequest held;
    auto reply = postHeld(ticket, Fault::holdRequest(std::chrono::seconds(30)), held);
    EXPECT_GE(held.bodyBytes, file.size() / 2);
    EXPECT_LT(held.bodyBytes, file.size());
    EXPECT_TRUE(sandbox.storedFiles().empty());
    sandbox.releaseHeld();
    ASSERT_EQ(reply.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NE(reply.get().result, CURLE_OK);
    EXPECT_TRUE(sandbox.storedFiles().empty());

    // Held from a given byte. (A new address: the old one is free again only once the held post's
    // handler has ended, which the client does not wait for.)
    ticket = uploadToken(http, sandbox, session, 9001);
    reply = postHeld(ticket, Fault::holdRequest(std::chrono::seconds(30), 1000), held);
    EXPECT_LT(held.bodyBytes, file.size() / 2);
    sandbox.releaseHeld();
    ASSERT_EQ(reply.wait_for(std::chrono::seconds(10)), std::future_status::ready);

    // Once stored: the file is there, its answer never comes, and the address is used up.
    ticket = uploadToken(http, sandbox, session, 9001);
    reply = postHeld(ticket, Fault::holdReply(std::chrono::seconds(30)), held);
    EXPECT_GT(held.bodyBytes, file.size());
    ASSERT_EQ(sandbox.storedFiles().size(), 1u);
    EXPECT_EQ(sandbox.storedFiles()[0].size, file.size());
    sandbox.releaseHeld();
    ASSERT_EQ(reply.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NE(reply.get().result, CURLE_OK);
    const std::string body = uploadBody(kFaultBoundary, ticket.fields, "f.wav", file);
    EXPECT_EQ(http.post(ticket.url, body, uploadContentType(kFaultBoundary)).status, 410);
}

TEST_F(SandboxFault, TheLogCountsTheCompletionReportsTheServiceAcceptedPerTrack)
{
    auto upload = [&](int64_t trackId) {
        const UploadTicket ticket = uploadToken(http, sandbox, session, trackId);
        const std::string body = uploadBody(kFaultBoundary, ticket.fields, "f.wav", "data");
        ASSERT_EQ(http.post(ticket.url, body, uploadContentType(kFaultBoundary)).status, 201);
    };
    auto report = [&](int64_t trackId) {
        return postJson("tracks/" + std::to_string(trackId) + "/upload_status",
                        with({{"upload_status", int64_t{100}}}, session.authMembers()));
    };
    EXPECT_EQ(statusCode(report(9002).body), 409) << "no file yet: refused, not counted";
    upload(9001);
    upload(9002);
    EXPECT_EQ(statusCode(report(9001).body), 200);
    EXPECT_EQ(statusCode(report(9002).body), 200);
    upload(9001);
    EXPECT_EQ(statusCode(report(9001).body), 200);
    // Refused by a fault: not counted. Taken, with the answer lost: counted.
    sandbox.injectFault(Endpoint::UploadStatus, Fault::statusCode(500));
    EXPECT_EQ(statusCode(report(9002).body), 500);
    sandbox.injectFault(Endpoint::UploadStatus, Fault::truncatedBody());
    EXPECT_EQ(statusCode(report(9002).body), -1);
    EXPECT_EQ(sandbox.requestLog().confirmedUploads(), (std::map<int64_t, size_t>{{9001, 2}, {9002, 2}}));
}

TEST(SandboxLink, EveryNthConnectionIsResetAtItsFirstRequestWhichTakesNoEffect)
{
    Sandbox sandbox;
    Sandbox::Options options;
    options.dropEveryNthConnection = 3;
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    Http kept; // connection 1, kept open
    const SignedIn session = signInAsDemo(kept, sandbox);
    const size_t before = sandbox.accounts().at(0).titles.size();

    std::vector<bool> answered;
    for (int i = 0; i < 5; ++i)
    {
        Http fresh; // connections 2 to 6
        answered.push_back(createTitle(fresh, sandbox, session, "Link " + std::to_string(i)).status == 200);
    }
    EXPECT_EQ(answered, (std::vector<bool>{true, false, true, true, false}));
    EXPECT_EQ(sandbox.accounts().at(0).titles.size(), before + 3);
    // The client may see the reset before the server has logged the request.
    ASSERT_TRUE(sandbox.requestLog().waitForSize(6, std::chrono::seconds(10)));
    std::vector<uint64_t> connections, dropped;
    for (const auto& entry : sandbox.requestLog().entries(Endpoint::CreateTitle))
    {
        connections.push_back(entry.connection);
        if (entry.fault == Fault::Kind::DropConnection)
            dropped.push_back(entry.connection);
    }
    std::sort(connections.begin(), connections.end());
    EXPECT_EQ(connections, (std::vector<uint64_t>{2, 3, 4, 5, 6}));
    EXPECT_EQ(dropped, (std::vector<uint64_t>{3, 6}));

    // A connection kept open meets no failure, however many requests it carries.
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(statusCode(titlesInDetail(kept, sandbox, session).body), 200);
}

TEST(SandboxLink, AConnectionIsClosedAfterItsNumberOfRequests)
{
    Sandbox sandbox;
    Sandbox::Options options;
    options.requestsPerConnection = 2;
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    Http http;
    const SignedIn session = signInAsDemo(http, sandbox);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(statusCode(titlesInDetail(http, sandbox, session).body), 200);
    std::vector<uint64_t> connections;
    for (const auto& entry : sandbox.requestLog().entries())
        connections.push_back(entry.connection);
    EXPECT_EQ(connections, (std::vector<uint64_t>{1, 1, 2, 2, 3, 3}));
}
