#include "framework/component/Signals.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"
#include "plugin/service/Client.h"
#include "plugin/service/Response.h"
#include "sandbox/Sandbox.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace Sorvel;
using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

namespace {

/// The service emulator on a port of its own, and a client configured for it.
class ClientAgainstSandbox : public testing::Test
{
protected:
    void SetUp() override
    {
        GetRunLoop();
        std::string error;
        ASSERT_GT(sandbox.start(SorvelSandbox::Sandbox::Options(), error), 0) << error;
        client = makeRef<Client>();
        Attributes provider;
        provider.set("ServerURL", String(sandbox.baseUrl()));
        provider.set("LoginURL", String(sandbox.loginUrl()));
        provider.set("PartnerID", String(sandbox.partnerId()));
        provider.set("PartnerKey", String(sandbox.partnerKey()));
        ASSERT_TRUE(client->getConfiguration().fill(provider));
        observer = makeRef<SignalLog>();
        client->addObserver(observer);
        login = sandbox.demoLogin();
    }
    void TearDown() override
    {
        client->removeObserver(observer);
        sandbox.stop();
    }

    /// Records the client's signals.
    class SignalLog : public Component
    {
    public:
        void notify(ISubject*, IMessage& message) override { signals.push_back(std::string(idOf(message))); }
        int count(const std::string& id) const { return static_cast<int>(std::count(signals.begin(), signals.end(), id)); }
        std::vector<std::string> signals;
    };

    bool signIn(const std::string& password)
    {
        if (!client->authorize(String(login.username), String(password)))
            return false;
        return EventWait::until(
            [&] { return observer->count("authorizationSucceeded") + observer->count("authorizationFailed") > 0; },
            10000);
    }

    SorvelSandbox::Sandbox sandbox;
    SorvelSandbox::Sandbox::Login login;
    Ref<Client> client;
    Ref<SignalLog> observer;
};

/// Collects the replies of calls made with the client.
class ReplyCatcher : public Component, public Web::XHRClientCallback<ReplyCatcher>
{
public:
    Ref<Web::IXHRCallback> handler() { return callback(&ReplyCatcher::onReply); }
    void onReply(Web::IXMLHttpRequest& request, IMessage& message)
    {
        events.push_back(std::string(idOf(message)));
        if ((idOf(message) == "onloadend"))
            response = makeRef<Response>(request);
    }
    std::vector<std::string> events;
    Ref<Response> response;
};

} // namespace

TEST_F(ClientAgainstSandbox, ASignInStoresTheSessionAndLaterRequestsEchoItsTimestamp)
{
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(observer->count("authorizationSucceeded"), 1);
    EXPECT_EQ(client->getState(), Client::Authorized);
    const ClientConfiguration& configuration = client->getConfiguration();
    EXPECT_FALSE(configuration.token.isEmpty());
    EXPECT_EQ(configuration.accountId.str(), std::to_string(login.accountId));
    // The service's timestamp has a form of its own; it must come back exactly as it was sent.
    EXPECT_FALSE(configuration.tokenTimestamp.isEmpty());
    Variant authorized;
    ASSERT_TRUE(client->getProperty(authorized, "isAuthorized"));
    EXPECT_EQ(authorized.asInt(), 1);
    EXPECT_FALSE(client->authorize(String(login.username), String(login.password))); // already signed in

    auto signInLog = sandbox.requestLog().entries(Endpoint::SignIn);
    ASSERT_EQ(signInLog.size(), 1u);
    EXPECT_EQ(signInLog[0].memberNames,
              (std::vector<std::string>{"partner_id", "username", "timestamp", "password", "signature"}));
    EXPECT_EQ(signInLog[0].contentType, "application/json");
    EXPECT_EQ(signInLog[0].body.find(login.password), std::string::npos); // only the digest travels

    // The activity by GET, signed with the session.
    auto catcher = makeRef<ReplyCatcher>();
    Attributes parameters;
    ASSERT_TRUE(client->requestActivity(catcher->handler(), parameters));
    ASSERT_TRUE(EventWait::until([&] { return catcher->response != nullptr; }, 10000));
    EXPECT_EQ(catcher->response->getStatusCode(), 200);
    ASSERT_NE(catcher->response->getData(), nullptr);
    auto activity = sandbox.requestLog().entries(Endpoint::Activity);
    ASSERT_EQ(activity.size(), 1u);
    EXPECT_EQ(activity[0].method, "GET");
    Url sent = Url::fromDisplayString("http://x" + activity[0].target);
    ASSERT_NE(sent.findParameter("timestamp"), nullptr);
    EXPECT_EQ(sent.findParameter("timestamp")->toUtf8(), configuration.tokenTimestamp.str());
    EXPECT_EQ(sent.path().toUtf8(), "/api/users/" + std::to_string(login.accountId) + "/activity");
}

TEST_F(ClientAgainstSandbox, AWrongPasswordFailsAndKeepsTheEarlierValues)
{
    client->getConfiguration().token = "earlier";
    client->getConfiguration().accountId = "7";
    ASSERT_TRUE(signIn(login.password + "x"));
    EXPECT_EQ(observer->count("authorizationFailed"), 1);
    EXPECT_EQ(observer->count("authorizationSucceeded"), 0);
    EXPECT_EQ(client->getState(), Client::Failed);
    EXPECT_EQ(client->getConfiguration().token, "earlier");
    EXPECT_EQ(client->getConfiguration().accountId, "7");
    EXPECT_GE(observer->count(Signals::kPropertyChanged), 2); // authorizing, then failed

    // From Failed a new sign-in is allowed; the second one, with the right password, succeeds.
    observer->signals.clear();
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(client->getState(), Client::Authorized);
}

TEST_F(ClientAgainstSandbox, RepliesThatAreNotASuccessFailTheSignIn)
{
    struct Case
    {
        Fault fault;
        const char* what;
    } cases[] = {{Fault::statusCode(500), "status_code 500"},
                 {Fault::statusCode(403), "status_code 403"},
                 {Fault::emptyBody(), "an empty body"},
                 {Fault::invalidBody(), "a body that is not JSON"},
                 {Fault::truncatedBody(), "a truncated body"},
                 {Fault::httpStatus(502), "HTTP 502"},
                 {Fault::replacedBody(R"({"status_code":200})"), "status_code 200 without data"},
                 {Fault::replacedBody(R"({"status_code":200,"data":"token"})"), "data that is not an object"},
                 {Fault::replacedBody(R"({"status_code":"200","data":{"token":"t"}})"), "status_code \"200\""},
                 {Fault::dropConnection(), "a dropped connection"}};
    for (const Case& c : cases)
    {
        sandbox.clearFaults();
        // A connection dropped before any reply is tried once more by the transport when it was a
        // reused one, so that fault is armed for the retry too.
        sandbox.injectFault(Endpoint::SignIn, c.fault, 1, c.fault.kind == Fault::Kind::DropConnection ? 2 : 1);
        observer->signals.clear();
        client->setState(Client::Unauthorized);
        ASSERT_TRUE(signIn(login.password)) << c.what;
        EXPECT_EQ(observer->count("authorizationFailed"), 1) << c.what;
        EXPECT_EQ(client->getState(), Client::Failed) << c.what;
        EXPECT_TRUE(client->getConfiguration().token.isEmpty()) << c.what;
    }
}

TEST_F(ClientAgainstSandbox, AStatusCodeWrittenAsADoubleStillCounts)
{
    sandbox.injectFault(Endpoint::SignIn, Fault::replacedBody(R"({"status_code":200.0,"data":{"token":"t-1",)"
                                                              R"("timestamp":"ts-1","account_id":12}})"));
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(observer->count("authorizationSucceeded"), 1);
    EXPECT_EQ(client->getConfiguration().token, "t-1");
    EXPECT_EQ(client->getConfiguration().tokenTimestamp, "ts-1");
    EXPECT_EQ(client->getConfiguration().accountId, "12"); // a number arrives as its text
}

TEST_F(ClientAgainstSandbox, ABusyClientRefusesASecondCallAndAnAbortLeavesItAuthorizing)
{
    sandbox.injectFault(Endpoint::SignIn, Fault::delayed(std::chrono::milliseconds(3000)));
    ASSERT_TRUE(client->authorize(String(login.username), String(login.password)));
    EXPECT_EQ(client->getState(), Client::Authorizing);
    EXPECT_TRUE(client->isBusy());
    auto catcher = makeRef<ReplyCatcher>();
    Attributes parameters;
    EXPECT_FALSE(client->requestActivity(catcher->handler(), parameters)); // refused while busy

    client->request()->abort();
    EXPECT_FALSE(client->isBusy());
    // The reply handler acts on "onloadend" only, and the callback went with "onabort": the
    // state stays where it was, and no sign-in starts until the controller resets it.
    EXPECT_EQ(client->getState(), Client::Authorizing);
    EXPECT_FALSE(client->authorize(String(login.username), String(login.password)));
    EXPECT_TRUE(catcher->events.empty());
    // Deferred signals keep their order: once a marker posted now has arrived, nothing earlier is on its way.
    client->deferSignal(makeRef<Message>("marker"));
    ASSERT_TRUE(EventWait::until([&] { return observer->count("marker") == 1; }, 2000));
    EXPECT_EQ(observer->count("authorizationSucceeded") + observer->count("authorizationFailed"), 0);

    client->setState(Client::Unauthorized);
    sandbox.clearFaults();
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(client->getState(), Client::Authorized);
}

TEST_F(ClientAgainstSandbox, WithoutAnAccountTheActivityIsAskedForByPost)
{
    auto catcher = makeRef<ReplyCatcher>();
    Attributes parameters;
    parameters.set("locale", String("en"));
    ASSERT_TRUE(client->requestActivity(catcher->handler(), parameters));
    ASSERT_TRUE(EventWait::until([&] { return catcher->response != nullptr; }, 10000));
    EXPECT_EQ(catcher->events.back(), "onloadend");
    auto anonymous = sandbox.requestLog().entries(Endpoint::AnonymousActivity);
    ASSERT_EQ(anonymous.size(), 1u);
    EXPECT_EQ(anonymous[0].method, "POST");
    EXPECT_EQ(anonymous[0].memberNames, (std::vector<std::string>{"locale", "partner_id", "signature"}));
    EXPECT_EQ(catcher->response->getStatusCode(), 200) << anonymous[0].error;
}
