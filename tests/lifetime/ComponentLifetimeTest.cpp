#include "../net/LocalHttpServer.h"

#include "framework/hostsupport/EventWait.h"
#include "framework/web/XHRClient.h"
#include "framework/web/XHRClientCallback.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace KVX::Web;

namespace {

/// What outlives a gadget: whether it was destroyed and what reached it.
struct Trace
{
    bool destroyed = false;
    int replies = 0;
    int messages = 0;
};

/// A gadget's controller as the plug-in builds one: it owns a client component and receives the
/// client's replies in a member function. While a call runs the client holds the callback, which
/// holds the gadget, which holds the client.
class Gadget : public Component, public XHRClientCallback<Gadget>
{
public:
    explicit Gadget(Trace& trace) : Component("Gadget"), trace_(trace)
    {
        client_ = makeRef<XHRClient>("Client");
        addChild(client_);
    }
    ~Gadget() override { trace_.destroyed = true; }

    bool request(const std::string& url)
    {
        return client_->send(callback(&Gadget::onReply), "GET", Url::fromDisplayString(url), nullptr, "");
    }
    void onReply(IXMLHttpRequest&, IMessage& message)
    {
        if (idOf(message) == "onloadend")
            ++trace_.replies;
    }
    void notify(ISubject*, IMessage& message) override
    {
        if (idOf(message) == "late")
            ++trace_.messages;
    }

    XHRClient& client() { return *client_; }

private:
    Trace& trace_;
    Ref<XHRClient> client_;
};

} // namespace

TEST(ComponentLifetime, AClosedGadgetIsFreedAndItsLateReplyAndMessageAreDropped)
{
    LocalHttpServer server;
    Trace trace;
    auto gadget = makeRef<Gadget>(trace);
    gadget->initialize(nullptr);
    ASSERT_TRUE(gadget->request(server.url("/silent"))); // a reply that will not come in time
    gadget->postMessage(makeRef<Message>("late"));
    ASSERT_TRUE(gadget->client().isBusy());

    // The host closes the gadget and lets go of it.
    gadget->terminate();
    gadget.reset();
    EXPECT_TRUE(trace.destroyed);

    // Nothing that was on its way reaches what is gone.
    EventWait::runFor(200);
    EXPECT_EQ(trace.replies, 0);
    EXPECT_EQ(trace.messages, 0);
}

TEST(ComponentLifetime, AnOpenGadgetKeepsItsCallAndMessagesAlive)
{
    // The same situation without terminate: the deliveries hold the gadget, and both arrive.
    LocalHttpServer server;
    Trace trace;
    auto gadget = makeRef<Gadget>(trace);
    gadget->initialize(nullptr);
    ASSERT_TRUE(gadget->request(server.url("/hello")));
    gadget->postMessage(makeRef<Message>("late"));
    gadget.reset();
    EXPECT_FALSE(trace.destroyed);
    ASSERT_TRUE(EventWait::until([&] { return trace.replies == 1 && trace.messages == 1; }, 10000));
    // With the call ended and the message delivered, nothing holds the gadget any more.
    EXPECT_TRUE(trace.destroyed);
}
