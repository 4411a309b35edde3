// Fault injection: each fault does what it says, on the request it was armed for, and a fault that
// refuses a request leaves the service's state unchanged.

#include "SandboxFixture.h"

#include <stdexcept>

using namespace SandboxTesting;
using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

namespace
{

const std::string kBoundary = "----------------------------XXBOUNDARY7FFF";

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
        const std::string body = uploadBody(kBoundary, ticket.fields, "f.wav", "data");
        sandbox.injectFault(Endpoint::Upload, Fault::httpStatus(test.status));
        HttpReply reply = http.post(ticket.url, body, uploadContentType(kBoundary));
        EXPECT_EQ(reply.status, test.status);
        EXPECT_EQ(sandbox.storedFiles().size(), before + (test.stored ? 1 : 0)) << test.status;
        // A refusal leaves the URL open; an accepted upload used it up.
        EXPECT_EQ(http.post(ticket.url, body, uploadContentType(kBoundary)).status, test.stored ? 410 : 201)
            << test.status;
    }
}

TEST_F(SandboxFault, TheUploadTargetDropsTheConnectionInMidBody)
{
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    const std::string file(4 << 20, 'a');
    const std::string body = uploadBody(kBoundary, ticket.fields, "f.wav", file);
    sandbox.injectFault(Endpoint::Upload, Fault::dropConnection());
    const size_t logged0 = sandbox.requestLog().size();
    HttpReply reply = Http().post(ticket.url, body, uploadContentType(kBoundary));
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
    reply = Http().post(ticket.url, body, uploadContentType(kBoundary));
    EXPECT_NE(reply.result, CURLE_OK);
    ASSERT_TRUE(sandbox.requestLog().waitForSize(logged0 + 2, std::chrono::seconds(10)));
    EXPECT_LT(sandbox.requestLog().entries(Endpoint::Upload).at(1).bodyBytes, body.size() / 2);

    // A target that reads none of a 4 MB body: nothing is received, the connection closes.
    sandbox.injectFault(Endpoint::Upload, Fault::stopReading(std::chrono::milliseconds(300)));
    reply = Http().post(ticket.url, body, uploadContentType(kBoundary));
    EXPECT_NE(reply.result, CURLE_OK);
    ASSERT_TRUE(sandbox.requestLog().waitForSize(logged0 + 3, std::chrono::seconds(10)));
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::Upload).at(2).bodyBytes, 0u);
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::Upload).at(2).fault, Fault::Kind::StopReading);
    EXPECT_TRUE(sandbox.storedFiles().empty());

    // The broken uploads left no file behind and the URL open.
    EXPECT_EQ(http.post(ticket.url, body, uploadContentType(kBoundary)).status, 201);
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
