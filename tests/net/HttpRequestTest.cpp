#include "LocalHttpServer.h"
#include "tests/support/LoopbackSocket.h"

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
#include <netinet/in.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

using namespace KVX;
using Web::IXMLHttpRequest;

namespace {

/// Records the events of a request, with the ready state seen at each.
class EventLog : public Object, public IObserver
{
    KVX_DECLARE_CLASS(EventLog, Object)
public:
    void notify(ISubject*, IMessage& message) override
    {
        std::string id = std::string(idOf(message));
        if (id == "onreadystatechange")
            id += std::to_string(request->getReadyState());
        if (id == "onprogress")
            ++progressEvents;
        else
            events.push_back(id);
        onThread = onThread && GetRunLoop()->isLoopThread();
    }
    KVX_FORWARD_UNKNOWN(Object)

    int count(const std::string& id) const { return static_cast<int>(std::count(events.begin(), events.end(), id)); }
    bool ended() const { return count("onloadend") > 0; }

    IXMLHttpRequest* request = nullptr;
    std::vector<std::string> events;
    int progressEvents = 0;
    bool onThread = true;
};
KVX_DEFINE_CLASS(EventLog, Object, "EventLog")
tresult EventLog::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    return Object::queryInterface(iid, object);
}

/// A request object observed by an event log.
struct ObservedRequest
{
    ObservedRequest()
    {
        GetRunLoop();
        IXMLHttpRequest* raw = nullptr;
        EXPECT_EQ(GetWebService()->createRequest(&raw), kResultOk);
        request = Ref<IXMLHttpRequest>::adopt(raw);
        void* subject = nullptr;
        request->queryInterface(ISubject::kIID, &subject);
        events = makeRef<EventLog>();
        events->request = request;
        static_cast<ISubject*>(subject)->addObserver(events);
        static_cast<ISubject*>(subject)->release();
    }
    ~ObservedRequest()
    {
        void* subject = nullptr;
        request->queryInterface(ISubject::kIID, &subject);
        static_cast<ISubject*>(subject)->removeObserver(events);
        static_cast<ISubject*>(subject)->release();
    }
    bool waitForEnd(uint32 timeoutMs = 10000)
    {
        return EventWait::until([&] { return events->ended(); }, timeoutMs);
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
};

/// Bytes made up as they are read, so a body of any size costs no memory.
class PatternStream : public Object, public IStream
{
    KVX_DECLARE_CLASS(PatternStream, Object)
public:
    explicit PatternStream(int64 size) : size_(size) {}
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
        if (!seekable)
            return -1;
        int64 target = (mode == kSeekSet ? 0 : mode == kSeekCurrent ? position_ : size_) + offset;
        if (target < 0 || target > size_)
            return -1;
        return position_ = target;
    }
    int64 tell() override { return position_; }
    KVX_FORWARD_UNKNOWN(Object)

    bool seekable = true;

private:
    int64 size_;
    int64 position_ = 0;
};
KVX_DEFINE_CLASS(PatternStream, Object, "PatternStream")
tresult PatternStream::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IStream)
    return Object::queryInterface(iid, object);
}

/// Cancels the transfer it watches once a given amount has gone out.
class CancellingProgress : public Object, public IProgressNotify
{
    KVX_DECLARE_CLASS(CancellingProgress, Object)
public:
    explicit CancellingProgress(double cancelAt) : cancelAt_(cancelAt) {}
    void updateProgress(const ProgressState& state) override
    {
        lastValue = state.value;
        ++reports;
        if (state.value >= cancelAt_ && !cancelled.load())
        {
            cancelledAt = std::chrono::steady_clock::now();
            cancelled.store(true);
        }
    }
    bool isCanceled() override { return cancelled.load(); }
    KVX_FORWARD_UNKNOWN(Object)

    std::atomic<bool> cancelled{false};
    std::chrono::steady_clock::time_point cancelledAt;
    double lastValue = 0;
    int reports = 0;

private:
    double cancelAt_;
};
KVX_DEFINE_CLASS(CancellingProgress, Object, "CancellingProgress")
tresult CancellingProgress::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IProgressNotify)
    return Object::queryInterface(iid, object);
}

int64 peakResidentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stoll(line.substr(6));
    return -1;
}

int unusedPort()
{
    return TestSupport::closedLoopbackPort();
}

} // namespace

TEST(HttpRequest, AGoodCallSignalsItsEventsInOrderOnTheLoopThread)
{
    LocalHttpServer server;
    ObservedRequest call;
    ASSERT_EQ(call.request->open("GET", server.url("/hello").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
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
    ASSERT_EQ(call.request->open("GET", server.url("/redirect").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    ASSERT_TRUE(EventWait::until([&] { return call.events->count("onloadend") == 2; }, 10000));
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

TEST(HttpRequest, ARefusedConnectionEndsWithErrorThenLoadEnd)
{
    ObservedRequest call;
    std::string url = "http://127.0.0.1:" + std::to_string(unusedPort()) + "/";
    ASSERT_EQ(call.request->open("GET", url.c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd());
    ASSERT_GE(call.events->events.size(), 2u);
    EXPECT_EQ(call.events->events[call.events->events.size() - 2], "onerror");
    EXPECT_EQ(call.events->events.back(), "onloadend");
    EXPECT_EQ(call.events->count("onload"), 0);
    EXPECT_EQ(call.request->getStatus(), 0);
    EXPECT_EQ(call.request->getResponseStream(), nullptr);
    EXPECT_STRNE(call.request->getErrorText(), "");
}

TEST(HttpRequest, AbortEndsTheCallAtOnceAndNothingOfItArrivesLater)
{
    LocalHttpServer server;
    ObservedRequest call;
    ASSERT_EQ(call.request->open("GET", server.url("/silent").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    call.request->abort();
    EXPECT_FALSE(call.request->isBusy());
    EXPECT_EQ(call.events->events,
              (std::vector<std::string>{"onreadystatechange1", "onreadystatechange4", "onabort", "onloadend"}));

    // The next call on the same object runs normally; the aborted call's own "onloadstart",
    // posted before the abort, must not show up among its events.
    call.events->events.clear();
    ASSERT_EQ(call.request->open("GET", server.url("/hello").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd());
    EXPECT_EQ(call.events->count("onloadstart"), 1);
    EXPECT_EQ(call.events->count("onloadend"), 1);
    EXPECT_EQ(call.events->count("onabort"), 0);
    EXPECT_EQ(call.request->getStatus(), 200);
    call.request->abort(); // nothing in progress: nothing happens
    EXPECT_EQ(call.events->count("onloadend"), 1);
}

TEST(HttpRequest, SendsTheBodyWithItsLengthAndOnlyTheHeadersAskedFor)
{
    LocalHttpServer server;
    ObservedRequest call;
    auto body = makeRef<MemoryStream>();
    body->write(std::string_view(R"({"partner_id":"P1"})"));
    body->seek(0, IStream::kSeekSet);
    ASSERT_EQ(call.request->open("POST", server.url("/echo").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->setRequestHeader("Content-Type", "application/json"), kResultOk);
    ASSERT_EQ(call.request->send(static_cast<IStream*>(body.get()), nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd());
    EXPECT_EQ(call.responseText(), "length=19 content-length=19 content-type=application/json expect= "
                                   "transfer-encoding= body={\"partner_id\":\"P1\"}");

    // A stream that cannot seek has no known length: it goes out chunked, whole.
    call.events->events.clear();
    auto unseekable = makeRef<PatternStream>(5000);
    unseekable->seekable = false;
    ASSERT_EQ(call.request->open("POST", server.url("/echo").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(static_cast<IStream*>(unseekable.get()), nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd());
    const std::string chunked = "length=5000 content-length= content-type= expect= transfer-encoding=chunked";
    EXPECT_EQ(call.responseText().substr(0, chunked.size()), chunked);

    // A GET without a content type sends no Content-Type header at all.
    call.events->events.clear();
    ASSERT_EQ(call.request->open("GET", server.url("/echo").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd());
    EXPECT_EQ(call.responseText(), "content-type= has-content-type=no");
}

TEST(HttpRequest, AStreamedBodyOf200MBKeepsMemoryFlat)
{
    LocalHttpServer server;
    IXMLHttpRequest* raw = nullptr;
    ASSERT_EQ(GetWebService()->createRequest(&raw), kResultOk);
    auto request = Ref<IXMLHttpRequest>::adopt(raw);
    constexpr int64 kSize = 200ll * 1000 * 1000;
    auto body = makeRef<PatternStream>(kSize);

    int64 before = peakResidentKiB();
    ASSERT_EQ(request->open("POST", server.url("/sink").c_str(), false, "", ""), kResultOk);
    ASSERT_EQ(request->send(static_cast<IStream*>(body.get()), nullptr), kResultOk) << request->getErrorText();
    int64 grown = peakResidentKiB() - before;

    EXPECT_EQ(request->getStatus(), 200);
    EXPECT_EQ(server.bytesReceived(), uint64_t(kSize));
    EXPECT_LT(grown, 32 * 1024) << "peak memory grew by " << grown << " KiB for a " << kSize << " byte body";
}

TEST(HttpRequest, CancellingASynchronousUploadEndsItWithinASecond)
{
    LocalHttpServer server;
    IXMLHttpRequest* raw = nullptr;
    ASSERT_EQ(GetWebService()->createRequest(&raw), kResultOk);
    auto request = Ref<IXMLHttpRequest>::adopt(raw);
    auto body = makeRef<PatternStream>(int64(1) << 40); // far more than could be sent meanwhile
    auto progress = makeRef<CancellingProgress>(1e-5);

    ASSERT_EQ(request->open("POST", server.url("/sink").c_str(), false, "", ""), kResultOk);
    tresult result = kResultOk;
    std::chrono::steady_clock::time_point returned;
    std::thread worker([&] {
        result = request->send(static_cast<IStream*>(body.get()), progress);
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

TEST(HttpRequest, ASilentServerEndsTheCallByTimeOut)
{
    LocalHttpServer server;
    GetWebService()->setTimeouts(2000, 1000);
    ObservedRequest call;
    GetWebService()->setTimeouts(15000, 30000);
    ASSERT_EQ(call.request->open("GET", server.url("/silent").c_str(), true, "", ""), kResultOk);
    // The settings are taken when the request object is made, so the short time-outs hold here.
    ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd(10000));
    EXPECT_EQ(call.events->count("onerror"), 1);
    EXPECT_EQ(call.events->events.back(), "onloadend");
    EXPECT_NE(std::string(call.request->getErrorText()).find("timed out"), std::string::npos)
        << call.request->getErrorText();
}

TEST(HttpRequest, TheStallTimeOutCountsFromTheLastByteSentOrReceived)
{
    // The body goes out at once and the answer comes three seconds later: with a stall time-out
    // of one second the call ends before it, however recently the body was sent.
    LocalHttpServer server;
    GetWebService()->setTimeouts(2000, 1000);
    ObservedRequest call;
    GetWebService()->setTimeouts(15000, 30000);
    auto body = makeRef<MemoryStream>();
    body->write("{\"a\":1}", 7);
    body->seek(0, IStream::kSeekSet);
    ASSERT_EQ(call.request->open("POST", server.url("/late").c_str(), true, "", ""), kResultOk);
    ASSERT_EQ(call.request->send(static_cast<IStream*>(body.get()), nullptr), kResultOk);
    ASSERT_TRUE(call.waitForEnd(10000));
    EXPECT_EQ(call.events->count("onerror"), 1);
    EXPECT_STREQ(call.request->getErrorText(), "timed out: nothing moved for 1 s");
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
        {
            ObservedRequest untrusted;
            ASSERT_EQ(untrusted.request->open("GET", server.url("/hello", "https").c_str(), true, "", ""),
                      kResultOk);
            ASSERT_EQ(untrusted.request->send(nullptr, nullptr), kResultOk);
            ASSERT_TRUE(untrusted.waitForEnd());
            EXPECT_EQ(untrusted.events->count("onerror"), 1);
            EXPECT_EQ(untrusted.request->getStatus(), 0);
        }
        GetWebService()->setCertificateAuthorityFile(cert.c_str());
        ObservedRequest trusted;
        GetWebService()->setCertificateAuthorityFile("");
        ASSERT_EQ(trusted.request->open("GET", server.url("/hello", "https").c_str(), true, "", ""), kResultOk);
        ASSERT_EQ(trusted.request->send(nullptr, nullptr), kResultOk);
        ASSERT_TRUE(trusted.waitForEnd());
        EXPECT_EQ(trusted.events->count("onload"), 1) << trusted.request->getErrorText();
        EXPECT_EQ(trusted.request->getStatus(), 200);
    }
    std::remove(cert.c_str());
    std::remove(key.c_str());
    ::rmdir(directory);
}

namespace {

/// A bare HTTP/1.1 server on 127.0.0.1 that keeps connections open: on each connection it
/// answers the first request and closes the connection, without a word, after reading the
/// second whole, as a server that acted on a request and then went away would. It counts every
/// request that arrived whole.
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
            for (int onConnection = 1; readRequest(client, pending); ++onConnection)
            {
                ++requests_;
                if (onConnection > 1)
                    break;
                const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
                if (::send(client, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
                    break;
            }
            client_.store(-1);
            ::close(client);
        }
    }
    /// Reads one request (headers and a Content-Length body); false when the connection ended.
    static bool readRequest(int client, std::string& pending)
    {
        auto fill = [&] {
            char buffer[4096];
            const ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
            if (got > 0)
                pending.append(buffer, static_cast<size_t>(got));
            return got > 0;
        };
        size_t end;
        while ((end = pending.find("\r\n\r\n")) == std::string::npos)
            if (!fill())
                return false;
        size_t length = 0;
        if (const size_t at = pending.find("Content-Length: "); at != std::string::npos && at < end)
            length = std::stoul(pending.substr(at + 16));
        while (pending.size() < end + 4 + length)
            if (!fill())
                return false;
        pending.erase(0, end + 4 + length);
        return true;
    }

    int listener_ = -1;
    int port_ = 0;
    std::atomic<int> requests_{0};
    std::atomic<int> client_{-1};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace

TEST(HttpRequest, ARequestIsSentAtMostOnceEvenWhenItsReusedConnectionClosesWithoutAnAnswer)
{
    // A connection that was reused and closed without an answer: the transfer library would send
    // the request again on a fresh connection. The server may have acted on the first, so the call
    // fails instead, for a body posted synchronously and for a GET sent asynchronously alike.
    {
        ClosingServer server;
        IXMLHttpRequest* raw = nullptr;
        ASSERT_EQ(GetWebService()->createRequest(&raw), kResultOk);
        auto request = Ref<IXMLHttpRequest>::adopt(raw);
        auto post = [&] {
            auto body = makeRef<PatternStream>(100000);
            EXPECT_EQ(request->open("POST", server.url("/tracks").c_str(), false, "", ""), kResultOk);
            return request->send(static_cast<IStream*>(body.get()), nullptr);
        };
        ASSERT_EQ(post(), kResultOk) << request->getErrorText();
        EXPECT_EQ(request->getStatus(), 200);
        EXPECT_EQ(post(), kUnexpected);
        EXPECT_NE(std::string(request->getErrorText()).find("not sent again"), std::string::npos)
            << request->getErrorText();
        EXPECT_EQ(server.requests(), 2) << "the second request arrived more than once";
        // The object stays usable: the next call goes out on a new connection.
        ASSERT_EQ(post(), kResultOk) << request->getErrorText();
        EXPECT_EQ(server.requests(), 3);
    }
    {
        ClosingServer server;
        ObservedRequest call;
        for (int i = 0; i < 2; ++i)
        {
            call.events->events.clear();
            ASSERT_EQ(call.request->open("GET", server.url("/upload_token").c_str(), true, "", ""), kResultOk);
            ASSERT_EQ(call.request->send(nullptr, nullptr), kResultOk);
            ASSERT_TRUE(call.waitForEnd());
        }
        EXPECT_EQ(call.events->count("onerror"), 1);
        EXPECT_EQ(server.requests(), 2);
    }
}
