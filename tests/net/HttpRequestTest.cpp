#include "LocalHttpServer.h"
#include "tests/support/LoopbackSocket.h"
#include "tests/support/References.h"

#include "framework/interfaces/IObserver.h"
#include "framework/interfaces/ISubject.h"
#include "framework/component/Message.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/services/IProgressNotify.h"
#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"
#include "framework/stream/MemoryStream.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <thread>
#include <tuple>

using namespace KVX;
using Web::IXMLHttpRequest;

namespace {

/// An object that answers queryInterface for one interface besides its own.
template <class Interface>
class With : public Object, public Interface
{
public:
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, Interface)
        return Object::queryInterface(iid, object);
    }
};

/// Records the events of a request but its progress, with the ready state seen at each.
class EventLog : public With<IObserver>
{
public:
    void notify(ISubject*, IMessage& message) override
    {
        std::string id = std::string(idOf(message));
        if (id == "onreadystatechange")
            id += std::to_string(request->getReadyState());
        if (id != "onprogress")
            events.push_back(id);
        onThread = onThread && GetRunLoop()->isLoopThread();
        if (onEvent)
            onEvent(id);
    }
    int count(const std::string& id) const { return static_cast<int>(std::count(events.begin(), events.end(), id)); }

    IXMLHttpRequest* request = nullptr;
    std::vector<std::string> events;
    bool onThread = true;
    std::function<void(const std::string&)> onEvent; // called after each event is logged
};

Ref<IXMLHttpRequest> newRequest()
{
    IXMLHttpRequest* raw = nullptr;
    EXPECT_EQ(GetWebService()->createRequest(&raw), kResultOk);
    return Ref<IXMLHttpRequest>::adopt(raw);
}

struct ObservedRequest
{
    ObservedRequest() : request((GetRunLoop(), newRequest())), events(makeRef<EventLog>())
    {
        void* raw = nullptr;
        request->queryInterface(ISubject::kIID, &raw);
        subject = Ref<ISubject>::adopt(static_cast<ISubject*>(raw));
        events->request = request;
        subject->addObserver(events);
    }
    ~ObservedRequest() { subject->removeObserver(events); }

    /// Clears the event log and sends an asynchronous call; waits for its end unless told not to.
    testing::AssertionResult run(const char* method, const std::string& url, IStream* body = nullptr,
                                 const char* contentType = nullptr, bool wait = true)
    {
        events->events.clear();
        if (request->open(method, url.c_str(), true, "", "") != kResultOk ||
            (contentType && request->setRequestHeader("Content-Type", contentType) != kResultOk) ||
            request->send(body, nullptr) != kResultOk)
            return testing::AssertionFailure() << method << " " << url << " was refused";
        if (wait && !waitForEnd())
            return testing::AssertionFailure() << method << " " << url << " did not end";
        return testing::AssertionSuccess();
    }
    bool waitForEnd()
    {
        return EventWait::until([&] { return events->count("onloadend") > 0; }, 10000);
    }
    std::string responseText()
    {
        IStream* stream = request->getResponseStream();
        std::string text;
        char buffer[4096];
        for (int64 got; stream && (got = stream->read(buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(got));
        return text;
    }

    Ref<IXMLHttpRequest> request;
    Ref<EventLog> events;
    Ref<ISubject> subject;
};

/// Bytes made up as they are read, so a body of any size costs no memory.
class PatternStream : public With<IStream>
{
public:
    explicit PatternStream(int64 size, bool seekable = true) : size_(size), seekable_(seekable) {}
    int64 read(void* buffer, int64 size) override
    {
        int64 count = std::min(size, size_ - position_);
        if (count <= 0)
            return 0;
        auto* out = static_cast<unsigned char*>(buffer);
        for (int64 i = 0; i < count; ++i)
            out[i] = static_cast<unsigned char>((position_ + i) * 31);
        position_ += count;
        return count;
    }
    int64 write(const void*, int64) override { return -1; }
    int64 seek(int64 offset, SeekMode mode) override
    {
        int64 target = (mode == kSeekSet ? 0 : mode == kSeekCurrent ? position_ : size_) + offset;
        if (!seekable_ || target < 0 || target > size_)
            return -1;
        return position_ = target;
    }
    int64 tell() override { return position_; }

private:
    int64 size_, position_ = 0;
    bool seekable_;
};

Ref<MemoryStream> memoryStream(std::string_view text)
{
    auto stream = makeRef<MemoryStream>();
    return stream->write(text), stream->seek(0, IStream::kSeekSet), stream;
}

/// Cancels the transfer it watches once a given amount has gone out.
class CancellingProgress : public With<IProgressNotify>
{
public:
    explicit CancellingProgress(double cancelAt) : cancelAt_(cancelAt) {}
    void updateProgress(const ProgressState& state) override
    {
        ++reports;
        if (state.value >= cancelAt_ && !cancelled.load())
        {
            cancelledAt = std::chrono::steady_clock::now();
            cancelled.store(true);
        }
    }
    bool isCanceled() override { return cancelled.load(); }

    const double cancelAt_;
    std::atomic<bool> cancelled{false};
    std::chrono::steady_clock::time_point cancelledAt;
    int reports = 0;
};

using TestSupport::referencesOf;

int64 peakResidentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stoll(line.substr(6));
    return -1;
}

/// Opens a synchronous POST of `body` and sends it.
tresult postNow(IXMLHttpRequest& request, const std::string& url, IStream* body, IProgressNotify* progress = nullptr)
{
    EXPECT_EQ(request.open("POST", url.c_str(), false, "", ""), kResultOk);
    return request.send(body, progress);
}

/// A bare HTTP/1.1 server on 127.0.0.1 that answers the first request on each connection and,
/// as a server that acted on a request and went away would, silently closes it after reading the
/// second whole. It counts every request that arrived whole.
class ClosingServer
{
public:
    ClosingServer()
    {
        listener_ = TestSupport::bindLoopback(port_, 8);
        thread_ = std::thread([this] { serve(); });
    }
    ~ClosingServer()
    {
        stopping_.store(true);
        ::shutdown(listener_, SHUT_RDWR);
        if (const int client = client_.load(); client >= 0)
            ::shutdown(client, SHUT_RDWR); // a connection the client still keeps open
        ::close(listener_);
        thread_.join();
    }
    std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    int requests() const { return requests_.load(); }

private:
    void serve()
    {
        for (int client; !stopping_.load() && (client = ::accept(listener_, nullptr, nullptr)) >= 0;)
        {
            client_.store(client);
            if (stopping_.load())
                ::shutdown(client, SHUT_RDWR);
            std::string pending;
            const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
            for (int onConnection = 1; readRequest(client, pending) && ++requests_ && onConnection == 1; ++onConnection)
                if (::send(client, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
                    break;
            client_.store(-1);
            ::close(client);
        }
    }
    /// Reads one request (headers and a Content-Length body); false when the connection ended.
    static bool readRequest(int client, std::string& pending)
    {
        for (char buffer[4096];;)
        {
            if (const size_t end = pending.find("\r\n\r\n"); end != std::string::npos)
            {
                const size_t at = pending.find("Content-Length: ");
                const size_t whole = end + 4 + (at < end ? std::stoul(pending.substr(at + 16)) : 0);
                if (pending.size() >= whole)
                    return pending.erase(0, whole), true;
            }
            const ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
            if (got <= 0)
                return false;
            pending.append(buffer, static_cast<size_t>(got));
        }
    }

    int listener_ = -1, port_ = 0;
    std::atomic<int> requests_{0}, client_{-1};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace

TEST(HttpRequest, AGoodCallSignalsItsEventsInOrderOnTheLoopThread)
{
    LocalHttpServer server;
    ObservedRequest call;
    ASSERT_TRUE(call.run("GET", server.url("/hello"), nullptr, nullptr, false));
    EXPECT_TRUE(call.request->isBusy());
    EXPECT_EQ(call.request->getResponseStream(), nullptr);
    ASSERT_TRUE(call.waitForEnd());
    EXPECT_EQ(call.events->events,
              (std::vector<std::string>{"onreadystatechange1", "onloadstart", "onreadystatechange2",
                                        "onreadystatechange3", "onreadystatechange4", "onload", "onloadend"}));
    EXPECT_TRUE(call.events->onThread);
    EXPECT_FALSE(call.request->isBusy());
    EXPECT_EQ(call.request->getStatus(), 200);
    EXPECT_STREQ(call.request->getResponseHeader("content-type"), "application/json");
    EXPECT_EQ(call.responseText(), R"({"status_code":200,"data":{"hello":"world"}})");
    EXPECT_STREQ(call.request->getErrorText(), "");

    // A redirect is the response itself: it is not followed.
    ASSERT_TRUE(call.run("GET", server.url("/redirect")));
    EXPECT_EQ(call.request->getStatus(), 302);
}

TEST(HttpRequest, RefusesBadArgumentsAndASecondCallWhileBusy)
{
    LocalHttpServer server;
    ObservedRequest call;
    EXPECT_EQ(call.request->open("FETCH", server.url("/hello").c_str(), true, "", ""), kInvalidArgument);
    EXPECT_EQ(call.request->open("GET", "ftp://127.0.0.1/x", true, "", ""), kInvalidArgument);
    EXPECT_EQ(call.request->open("GET", "http://127.0.0.1/a\r\nX-Injected: 1", true, "", ""), kInvalidArgument);
    EXPECT_EQ(call.request->send(nullptr, nullptr), kUnexpected); // not opened

    ASSERT_EQ(call.request->open("GET", server.url("/silent").c_str(), true, "", ""), kResultOk);
    EXPECT_EQ(call.request->setRequestHeader("X-Bad", "a\r\nb"), kInvalidArgument);
    EXPECT_EQ(call.request->setRequestHeader("Bad Name", "x"), kInvalidArgument);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    EXPECT_EQ(call.request->open("GET", server.url("/hello").c_str(), true, "", ""), kUnexpected);
    EXPECT_EQ(call.request->send(nullptr, nullptr), kUnexpected);
    call.request->abort();
}

TEST(HttpRequest, AFailedCallEndsWithErrorThenLoadEndAndNoResponse)
{
    LocalHttpServer server;
    const TestSupport::RefusingPort refusing;
    auto body = memoryStream("{\"a\":1}");
    // Time-outs are taken when the request object is made. The late answer comes three seconds
    // after the body went out: the stall time-out counts from the last byte moved, so ends the call.
    // Each case checks the whole error text, or only its start.
    for (const auto& [name, method, url, body, shortTimeOuts, wholeError, error] :
         std::vector<std::tuple<const char*, const char*, std::string, IStream*, bool, bool, std::string>>{
             {"refused", "GET", "http://127.0.0.1:" + std::to_string(refusing.port()) + "/", nullptr, false, false, ""},
             {"silent server", "GET", server.url("/silent"), nullptr, true, false, "timed out"},
             {"late answer", "POST", server.url("/late"), body.get(), true, true, "timed out: nothing moved for 1 s"}})
    {
        SCOPED_TRACE(name);
        if (shortTimeOuts)
            GetWebService()->setTimeouts(2000, 1000);
        ObservedRequest call;
        GetWebService()->setTimeouts(15000, 30000);
        ASSERT_TRUE(call.run(method, url, body));
        const auto& events = call.events->events;
        ASSERT_GE(events.size(), 2u);
        EXPECT_EQ(events[events.size() - 2], "onerror");
        EXPECT_EQ(events.back(), "onloadend");
        EXPECT_EQ(call.events->count("onerror"), 1);
        EXPECT_EQ(call.events->count("onload"), 0);
        EXPECT_EQ(call.request->getStatus(), 0);
        EXPECT_EQ(call.request->getResponseStream(), nullptr);
        const std::string text = call.request->getErrorText();
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(wholeError ? text : text.substr(0, error.size()), error);
    }
}

TEST(HttpRequest, AbortEndsTheCallAtOnceAndNothingOfItArrivesLater)
{
    LocalHttpServer server;
    ObservedRequest call;
    ASSERT_TRUE(call.run("GET", server.url("/silent"), nullptr, nullptr, false));
    call.request->abort();
    EXPECT_FALSE(call.request->isBusy());
    EXPECT_EQ(call.events->events,
              (std::vector<std::string>{"onreadystatechange1", "onreadystatechange4", "onabort", "onloadend"}));

    // The next call on the same object runs normally; the aborted call's own "onloadstart",
    // posted before the abort, must not show up among its events.
    ASSERT_TRUE(call.run("GET", server.url("/hello")));
    EXPECT_EQ(call.events->count("onloadstart"), 1);
    EXPECT_EQ(call.events->count("onloadend"), 1);
    EXPECT_EQ(call.events->count("onabort"), 0);
    EXPECT_EQ(call.request->getStatus(), 200);
    call.request->abort(); // nothing in progress: nothing happens
    EXPECT_EQ(call.events->count("onloadend"), 1);
}

// A caller's body and progress objects may live in a library that is unloaded as soon as the
// caller knows that its call is over: from then on the network module holds none of them.
TEST(HttpRequest, TheCallersObjectsAreLetGoBeforeItHearsOfTheEndAndWhenAnAbortReturns)
{
    LocalHttpServer server;
    ObservedRequest call;
    auto send = [&](const char* path, IStream* body, IProgressNotify* progress) {
        call.events->events.clear();
        return call.request->open("POST", server.url(path).c_str(), true, "", "") == kResultOk &&
               call.request->send(body, progress) == kResultOk;
    };

    // A call that ends: its "onloadend" is the caller's first moment to unload.
    auto body = memoryStream(R"({"a":1})");
    auto progress = makeRef<CancellingProgress>(2.0); // never cancels
    uint32 bodyAtEnd = 0, progressAtEnd = 0;
    call.events->onEvent = [&](const std::string& id) {
        if (id == "onloadend")
        {
            bodyAtEnd = referencesOf(body);
            progressAtEnd = referencesOf(progress);
        }
    };
    ASSERT_TRUE(send("/echo", body, progress));
    ASSERT_TRUE(call.waitForEnd());
    EXPECT_EQ(call.request->getStatus(), 200);
    EXPECT_EQ(bodyAtEnd, 1u);
    EXPECT_EQ(progressAtEnd, 1u);
    call.events->onEvent = nullptr;

    // An upload aborted while its body streams out, and one aborted before the transfer thread
    // could start it: both are let go of by the time abort() returns.
    for (const bool started : {true, false})
    {
        auto endless = makeRef<PatternStream>(int64(1) << 40);
        auto watcher = makeRef<CancellingProgress>(2.0);
        const uint64_t before = server.bytesReceived();
        ASSERT_TRUE(send("/sink", endless, watcher));
        if (started)
        {
            ASSERT_TRUE(EventWait::until([&] { return server.bytesReceived() > before + 65536; }, 10000));
        }
        call.request->abort();
        EXPECT_EQ(referencesOf(endless), 1u) << (started ? "while streaming" : "before the start");
        EXPECT_EQ(referencesOf(watcher), 1u) << (started ? "while streaming" : "before the start");
        EXPECT_EQ(call.events->count("onabort"), 1);
    }
}

TEST(HttpRequest, SendsTheBodyWithItsLengthAndOnlyTheHeadersAskedFor)
{
    LocalHttpServer server;
    ObservedRequest call;
    auto json = memoryStream(R"({"partner_id":"P1"})");
    auto unseekable = makeRef<PatternStream>(5000, false);
    // Each case checks the whole echo, or for the unseekable body its start.
    for (const auto& [method, contentType, body, expected] :
         std::vector<std::tuple<const char*, const char*, IStream*, std::string>>{
             {"POST", "application/json", json.get(),
              "length=19 content-length=19 content-type=application/json expect= transfer-encoding= "
              "body={\"partner_id\":\"P1\"}"},
             {"POST", nullptr, unseekable.get(), "length=5000 content-length= content-type= expect= "
                                                 "transfer-encoding=chunked"},
             {"GET", nullptr, nullptr, "content-type= has-content-type=no"}})
    {
        ASSERT_TRUE(call.run(method, server.url("/echo"), body, contentType)) << expected;
        const std::string text = call.responseText();
        EXPECT_EQ(body == unseekable.get() ? text.substr(0, expected.size()) : text, expected);
    }
}

TEST(HttpRequest, AStreamedBodyOf200MBKeepsMemoryFlat)
{
    LocalHttpServer server;
    auto request = newRequest();
    constexpr int64 kSize = 200ll * 1000 * 1000;
    auto body = makeRef<PatternStream>(kSize);
    int64 before = peakResidentKiB();
    ASSERT_EQ(postNow(*request, server.url("/sink"), body.get()), kResultOk) << request->getErrorText();
    int64 grown = peakResidentKiB() - before;
    EXPECT_EQ(request->getStatus(), 200);
    EXPECT_EQ(server.bytesReceived(), uint64_t(kSize));
    EXPECT_LT(grown, 32 * 1024) << "peak memory grew by " << grown << " KiB for a " << kSize << " byte body";
}

TEST(HttpRequest, CancellingASynchronousUploadEndsItWithinASecond)
{
    LocalHttpServer server;
    auto request = newRequest();
    auto endless = makeRef<PatternStream>(int64(1) << 40); // far more than could be sent meanwhile
    auto progress = makeRef<CancellingProgress>(1e-5);
    tresult result = kResultOk;
    std::chrono::steady_clock::time_point returned;
    std::thread worker([&] {
        result = postNow(*request, server.url("/sink"), endless.get(), progress);
        returned = std::chrono::steady_clock::now();
    });
    worker.join();
    ASSERT_TRUE(progress->cancelled.load());
    EXPECT_EQ(result, kUnexpected);
    EXPECT_STREQ(request->getErrorText(), "cancelled");
    EXPECT_GT(progress->reports, 0);
    EXPECT_LT(returned - progress->cancelledAt, std::chrono::seconds(1));
    EXPECT_LT(server.bytesReceived(), uint64_t(1) << 40);
}

TEST(HttpRequest, HttpsNeedsTheServersAuthorityToBeTrusted)
{
    char directory[] = "/tmp/kvxnet-tls-XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    std::string cert = std::string(directory) + "/cert.pem", key = std::string(directory) + "/key.pem";
    std::string command = "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=127.0.0.1"
                          " -addext subjectAltName=IP:127.0.0.1 -keyout " +
                          key + " -out " + cert + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0) << "openssl could not make a certificate";
    {
        LocalHttpServer server(cert, key);
        for (bool trusted : {false, true})
        {
            SCOPED_TRACE(trusted ? "trusted" : "untrusted");
            if (trusted)
                GetWebService()->setCertificateAuthorityFile(cert.c_str());
            ObservedRequest call;
            GetWebService()->setCertificateAuthorityFile("");
            ASSERT_TRUE(call.run("GET", server.url("/hello", "https")));
            EXPECT_EQ(call.events->count(trusted ? "onload" : "onerror"), 1) << call.request->getErrorText();
            EXPECT_EQ(call.request->getStatus(), trusted ? 200 : 0);
        }
    }
    std::remove(cert.c_str());
    std::remove(key.c_str());
    ::rmdir(directory);
}

TEST(HttpRequest, ARequestIsSentAtMostOnceEvenWhenItsReusedConnectionClosesWithoutAnAnswer)
{
    // Over a reused connection closed without an answer the transfer library would send the request
    // again on a fresh one. The server may have acted on the first, so the call fails instead, for a
    // body posted synchronously and for a GET sent asynchronously alike.
    {
        ClosingServer server;
        auto request = newRequest();
        auto post = [&] { return postNow(*request, server.url("/tracks"), makeRef<PatternStream>(100000).get()); };
        ASSERT_EQ(post(), kResultOk) << request->getErrorText();
        EXPECT_EQ(request->getStatus(), 200);
        EXPECT_EQ(post(), kUnexpected);
        EXPECT_NE(std::string(request->getErrorText()).find("not sent again"), std::string::npos)
            << request->getErrorText();
        EXPECT_EQ(server.requests(), 2) << "the second request arrived more than once";
        ASSERT_EQ(post(), kResultOk) << request->getErrorText(); // still usable, on a new connection
        EXPECT_EQ(server.requests(), 3);
    }
    ClosingServer server;
    ObservedRequest call;
    ASSERT_TRUE(call.run("GET", server.url("/upload_token")));
    ASSERT_TRUE(call.run("GET", server.url("/upload_token")));
    EXPECT_EQ(call.events->count("onerror"), 1);
    EXPECT_EQ(server.requests(), 2);
}
