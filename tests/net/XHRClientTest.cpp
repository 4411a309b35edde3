#include "LocalHttpServer.h"
#include "tests/support/References.h"

#include "framework/component/Signals.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/services/SystemServices.h"
#include "framework/stream/IStream.h"
#include "framework/web/XHRClient.h"
#include "framework/web/XHRClientCallback.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace KVX::Web;

namespace {

using TestSupport::referencesOf;

/// Receives call events in member functions, as controllers do, and counts property changes.
class Receiver : public Component, public XHRClientCallback<Receiver>
{
public:
    Receiver() : Component("Receiver") {}

    Ref<IXHRCallback> first() { return callback(&Receiver::onFirst); }
    Ref<IXHRCallback> second() { return callback(&Receiver::onSecond); }

    void onFirst(IXMLHttpRequest& request, IMessage& message)
    {
        firstEvents.push_back(std::string(idOf(message)));
        if ((idOf(message) == "onloadend"))
        {
            status = request.getStatus();
            IStream* stream = request.getResponseStream();
            char buffer[512];
            int64 got = stream ? stream->read(buffer, sizeof buffer) : 0;
            body.assign(buffer, static_cast<size_t>(std::max<int64>(got, 0)));
        }
    }
    void onSecond(IXMLHttpRequest&, IMessage& message) { secondEvents.push_back(std::string(idOf(message))); }
    void notify(ISubject*, IMessage& message) override
    {
        if ((idOf(message) == Signals::kPropertyChanged))
            ++propertyChanges;
    }

    std::vector<std::string> firstEvents, secondEvents;
    int status = 0;
    std::string body;
    int propertyChanges = 0;
};

} // namespace

TEST(XHRClient, ServesOneCallAtATimeAndReleasesTheCallbackAtTheEnd)
{
    GetRunLoop();
    LocalHttpServer server;
    auto client = makeRef<XHRClient>("Client");
    auto receiver = makeRef<Receiver>();
    client->addObserver(receiver);

    auto firstCallback = receiver->first();
    ASSERT_TRUE(client->send(firstCallback, "GET", Url::fromDisplayString(server.url("/echo")), nullptr, ""));
    EXPECT_EQ(referencesOf(firstCallback), 2u); // held by us and by the client while the call runs
    Variant busy;
    ASSERT_TRUE(client->getProperty(busy, "isBusy"));
    EXPECT_EQ(busy.asInt(), 1);
    EXPECT_EQ(receiver->propertyChanges, 1);

    // A second call while busy is refused and the first call's callback stays.
    EXPECT_FALSE(client->send(receiver->second(), "GET", Url::fromDisplayString(server.url("/hello")), nullptr, ""));
    ASSERT_TRUE(EventWait::until([&] { return !receiver->firstEvents.empty() && receiver->firstEvents.back() == "onloadend"; }, 10000));
    EXPECT_TRUE(receiver->secondEvents.empty());
    EXPECT_EQ(receiver->status, 200);
    EXPECT_EQ(receiver->body, "content-type= has-content-type=no"); // a GET with no content type sends none
    EXPECT_FALSE(client->isBusy());
    EXPECT_EQ(receiver->propertyChanges, 2);
    EXPECT_EQ(referencesOf(firstCallback), 1u); // the client has let go of it

    // Now a new call can start: attributes go out as a JSON body.
    Attributes parameters;
    parameters.set("partner_id", String("P1"));
    parameters.set("year", 2014);
    receiver->firstEvents.clear();
    ASSERT_TRUE(client->sendAttributes(receiver->first(), "POST", Url::fromDisplayString(server.url("/echo")), parameters));
    ASSERT_TRUE(EventWait::until([&] { return !receiver->firstEvents.empty() && receiver->firstEvents.back() == "onloadend"; }, 10000));
    EXPECT_EQ(receiver->body, "length=31 content-length=31 content-type=application/json expect= transfer-encoding= "
                              "body={\"partner_id\":\"P1\",\"year\":2014}");
    client->removeObserver(receiver);
}

TEST(XHRClient, AnAbortReleasesTheCallbackWithoutALoadEndForIt)
{
    LocalHttpServer server;
    auto client = makeRef<XHRClient>("Client");
    auto receiver = makeRef<Receiver>();
    ASSERT_TRUE(client->send(receiver->first(), "GET", Url::fromDisplayString(server.url("/silent")), nullptr, ""));
    client->request()->abort();
    // The callback saw the abort; "onloadend" came after it was released.
    ASSERT_FALSE(receiver->firstEvents.empty());
    EXPECT_EQ(receiver->firstEvents.back(), "onabort");
    EXPECT_FALSE(client->isBusy());
    EXPECT_EQ(receiver->referenceCount(), 1u);
}
