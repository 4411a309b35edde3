// Uploads one large track through the upload session, and the same file with `curl -F`, to one
// upload target in one run; then measures how long a cancel takes to end the batch, while data
// flows and when the server has stopped reading.
//
//   upload_session_bench [--size MiB] [--rounds N] [--cancels N]
//
// The upload target is a process of its own that reads each body in large pieces and discards
// it (no disk, no parsing), so that it is never the slower end and the ratio measures the clients;
// the in-process sandbox answers every other request and hands out its address. The session runs
// in this process (its peak memory is this process's growth during the upload); curl runs as a
// child process with its own peak.
#include "framework/data/Json.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"
#include "framework/stream/MemoryStream.h"
#include "plugin/service/Client.h"
#include "plugin/service/Response.h"
#include "plugin/upload/UploadSession.h"
#include "sandbox/Sandbox.h"

#include <arpa/inet.h>
#include <signal.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;
using namespace Sorvel;
using Clock = std::chrono::steady_clock;

namespace {

/// Counts what the session signals, and cancels it when its progress passes a mark.
class Watcher : public Object, public IObserver
{
public:
    void notify(ISubject*, IMessage& message) override
    {
        const std::string_view id = idOf(message);
        if (id == "sessionFinished")
            finished = Clock::now();
        else if (id == "trackProgressChanged" && session && !canceledAt &&
                 argumentOf(message, 0).asDouble() >= cancelAt)
        {
            canceledAt = Clock::now();
            if (!markOnly)
                session->cancel();
        }
    }
    KVX_FORWARD_UNKNOWN(Object)

    UploadSession* session = nullptr;
    double cancelAt = 2.0; // never, unless set
    bool markOnly = false; // note when the mark is passed, without cancelling
    std::optional<Clock::time_point> canceledAt;
    std::optional<Clock::time_point> finished;
};

tresult Watcher::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    return Object::queryInterface(iid, object);
}

long peakKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// A WAV header and then `bytes` of nothing: sparse on disk, read as zeros.
bool writeSparseWave(const std::string& path, uint64 bytes)
{
    int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const char header[12] = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E'};
    const bool ok = ::write(fd, header, sizeof header) == static_cast<ssize_t>(sizeof header) &&
                    ::ftruncate(fd, static_cast<off_t>(bytes)) == 0;
    ::close(fd);
    return ok;
}

/// Runs one batch of `path` into a new product; returns the seconds from start to the end.
double runBatch(const ClientConfiguration& configuration, const std::string& path, Watcher& watcher, bool& ok)
{
    auto session = makeRef<UploadSession>();
    session->setConfiguration(configuration);
    session->addObserver(&watcher);
    watcher.session = session;
    watcher.finished.reset();
    watcher.canceledAt.reset();
    auto title = makeRef<Title>();
    title->name = String("Benchmark");
    auto track = makeRef<LocalTrack>();
    track->name = String("long take");
    track->url = Url::fromNativePath(String(path));
    track->incompatible = false;
    session->setTitle(title);
    session->addEntry(makeRef<UploadSession::Entry>(track, String()));
    const auto start = Clock::now();
    session->start();
    EventWait::until([&] { return watcher.finished.has_value(); }, 3600 * 1000);
    ok = watcher.finished.has_value() && session->succeeded();
    session->removeObserver(&watcher);
    watcher.session = nullptr;
    return std::chrono::duration<double>(*watcher.finished - start).count();
}

/// A new track's one-time upload address and form fields, asked for as the session does.
bool uploadTarget(const ClientConfiguration& configuration, std::string& url, std::vector<std::string>& fields)
{
    void* object = nullptr;
    if (GetPlugInManager()->createInstance(Web::IXMLHttpRequest::kClassId, Web::IXMLHttpRequest::kIID, &object) != kResultOk)
        return false;
    Ref<Web::IXMLHttpRequest> request = Ref<Web::IXMLHttpRequest>::adopt(static_cast<Web::IXMLHttpRequest*>(object));
    auto call = [&](const char* method, const Url& address, IStream* body) -> Ref<Response> {
        const std::string text = address.toDisplayString().toUtf8();
        if (request->open(method, text.c_str(), false, "", "") != kResultOk)
            return {};
        if (body)
            request->setRequestHeader("Content-Type", "application/json");
        if (request->send(body, nullptr) != kResultOk)
            return {};
        auto reply = makeRef<Response>(*request);
        if (!reply->isSuccess())
            std::fprintf(stderr, "upload_session_bench: %s %s answered %d: %s\n", method, text.c_str(), request->getStatus(),
                         Json::toText(*reply).c_str());
        return reply->isSuccess() ? reply : Ref<Response>();
    };
    Attributes titleParameters;
    auto title = makeRef<Title>();
    title->name = String("curl");
    title->writeCreateParams(titleParameters);
    configuration.addAuthParameters(titleParameters);
    auto body = makeRef<MemoryStream>();
    Json::save(*body, titleParameters);
    body->seek(0, IStream::kSeekSet);
    Url titles = configuration.serverUrl;
    titles.appendPath("titles");
    Ref<Response> created = call("POST", titles, body);
    if (!created || !created->getData())
        return false;
    Attributes trackParameters;
    auto take = makeRef<Track>();
    take->name = String("curl take");
    take->writeCreateParams(trackParameters);
    trackParameters.set("title_id", created->getData()->getString("id"));
    configuration.addAuthParameters(trackParameters);
    body = makeRef<MemoryStream>();
    Json::save(*body, trackParameters);
    body->seek(0, IStream::kSeekSet);
    Url tracks = configuration.serverUrl;
    tracks.appendPath("tracks");
    Ref<Response> track = call("POST", tracks, body);
    if (!track || !track->getData())
        return false;
    Attributes none;
    Url tokenUrl;
    configuration.makeRequestUrl(tokenUrl, "tracks/" + track->getData()->getString("id").toUtf8() + "/upload_token", none);
    Ref<Response> token = call("GET", tokenUrl, nullptr);
    if (!token || !token->getData())
        return false;
    url = token->getData()->getString("url").toUtf8();
    if (Attributes* postData = token->getData()->getAttributes("post_data"))
        for (const Attributes::Member& member : *postData)
            fields.push_back(std::string(member.name.view()) + "=" + member.value.toString().toUtf8());
    fields.push_back("Content-Type=audio/x-wav");
    return true;
}

/// curl -F with the fields and the file, as a child process: its time and peak memory.
bool runCurl(const std::string& url, const std::vector<std::string>& fields, const std::string& path, double& seconds,
             long& peak)
{
    const auto start = Clock::now();
    pid_t pid = fork();
    if (pid == 0)
    {
        int null = ::open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        std::vector<std::string> arguments{"curl", "-sS", "--fail", "-H", "Expect:"};
        for (const std::string& field : fields)
            arguments.insert(arguments.end(), {"-F", field});
        // The target wants the file part's headers exactly as the session writes them.
        arguments.insert(arguments.end(), {"-F",
                                           "file=@" + path +
                                               ";type=application/octet-stream;headers=\"Content-Transfer-Encoding: binary\"",
                                           url});
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        execvp("curl", argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    seconds = std::chrono::duration<double>(Clock::now() - start).count();
    peak = usage.ru_maxrss;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// A socket listening on a free port of 127.0.0.1, and that port (0 when it could not listen).
int listenOnLoopback(int& port)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    port = 0;
    if (listener >= 0 && ::bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        ::listen(listener, 8) == 0 && ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    return listener;
}

/// A server that accepts a connection and never reads from it.
class StalledServer
{
public:
    StalledServer() : listener_(listenOnLoopback(port_)) {}
    ~StalledServer() { ::close(listener_); }
    int port() const { return port_; }

private:
    int port_ = 0;
    int listener_;
};

/// An upload target in a process of its own that answers every POST with 201 once it has read
/// the body, and keeps nothing. It understands just enough HTTP for the two clients here: a head,
/// a Content-Length, keep-alive.
class DiscardingTarget
{
public:
    /// Forks the process; call before any thread starts (the child only makes system calls).
    DiscardingTarget()
    {
        listener_ = listenOnLoopback(port_);
        if (port_ == 0)
        {
            ::close(listener_);
            return;
        }
        child_ = fork();
        if (child_ == 0)
        {
            for (;;)
                if (const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC); connection >= 0)
                {
                    serve(connection);
                    ::close(connection);
                }
        }
        ::close(listener_);
    }
    ~DiscardingTarget()
    {
        if (child_ > 0)
        {
            kill(child_, SIGKILL);
            waitpid(child_, nullptr, 0);
        }
    }
    /// The port it listens on on 127.0.0.1, or 0 when it could not start.
    int port() const { return child_ > 0 ? port_ : 0; }

private:
    static void serve(int connection)
    {
        static char buffer[1 << 20];
        for (;;)
        {
            // The head, and whatever of the body came with it.
            size_t have = 0;
            const char* end = nullptr;
            while (!end)
            {
                const ssize_t got = ::recv(connection, buffer + have, 65536 - have, 0);
                if (got <= 0)
                    return;
                have += static_cast<size_t>(got);
                end = static_cast<const char*>(memmem(buffer, have, "\r\n\r\n", 4));
                if (!end && have == 65536)
                    return;
            }
            unsigned long long length = 0;
            for (const char* line = buffer; line < end; line = static_cast<const char*>(std::memchr(line, '\n', static_cast<size_t>(end - line))) + 1)
            {
                if (strncasecmp(line, "Content-Length:", 15) == 0)
                    length = std::strtoull(line + 15, nullptr, 10);
                if (!std::memchr(line, '\n', static_cast<size_t>(end - line)))
                    break;
            }
            unsigned long long left = length - std::min<unsigned long long>(length, have - static_cast<size_t>(end + 4 - buffer));
            while (left > 0)
            {
                const ssize_t got = ::recv(connection, buffer, std::min<unsigned long long>(left, sizeof buffer), 0);
                if (got <= 0)
                    return;
                left -= static_cast<unsigned long long>(got);
            }
            static const char kAnswer[] = "HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n";
            if (::send(connection, kAnswer, sizeof kAnswer - 1, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof kAnswer - 1))
                return;
        }
    }

    int listener_ = -1;
    int port_ = 0;
    pid_t child_ = 0;
};

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5))];
}

} // namespace

int main(int argc, char** argv)
{
    uint64 mebibytes = 1024;
    int cancels = 20;
    int rounds = 3;
    for (int i = 1; i + 1 < argc; i += 2)
    {
        if (std::strcmp(argv[i], "--size") == 0)
            mebibytes = std::strtoull(argv[i + 1], nullptr, 10);
        else if (std::strcmp(argv[i], "--cancels") == 0)
            cancels = std::atoi(argv[i + 1]);
        else if (std::strcmp(argv[i], "--rounds") == 0)
            rounds = std::atoi(argv[i + 1]);
        else
        {
            std::fprintf(stderr, "usage: upload_session_bench [--size MiB] [--rounds N] [--cancels N]\n");
            return 2;
        }
    }
    if (mebibytes < 1 || cancels < 1 || rounds < 1)
    {
        std::fprintf(stderr, "upload_session_bench: --size, --rounds and --cancels take numbers from 1\n");
        return 2;
    }
    DiscardingTarget target; // first: it forks
    if (target.port() == 0)
    {
        std::fprintf(stderr, "upload_session_bench: the upload target did not start\n");
        return 1;
    }
    if (GetRunLoop()->attachToCurrentThread() != kResultOk || RegisterWebServiceClasses() != kResultOk)
        return 1;

    SorvelSandbox::Sandbox sandbox;
    std::string error;
    // Cancelled uploads go to the sandbox's own target, which keeps nothing either.
    SorvelSandbox::Sandbox::Options options;
    options.discardUploads = true;
    if (sandbox.start(options, error) < 0)
    {
        std::fprintf(stderr, "upload_session_bench: the sandbox did not start: %s\n", error.c_str());
        return 1;
    }
    auto client = makeRef<Client>();
    Attributes provider;
    provider.set("ServerURL", String(sandbox.baseUrl()));
    provider.set("LoginURL", String(sandbox.loginUrl()));
    provider.set("PartnerID", String(sandbox.partnerId()));
    provider.set("PartnerKey", String(sandbox.partnerKey()));
    client->getConfiguration().fill(provider);
    const auto login = sandbox.demoLogin();
    client->authorize(String(login.username), String(login.password));
    EventWait::until([&] { return client->getState() != Client::Authorizing; }, 10000);
    if (!client->isAuthorized())
    {
        std::fprintf(stderr, "upload_session_bench: the sign-in failed\n");
        return 1;
    }
    const ClientConfiguration configuration = client->getConfiguration();

    const std::string path = (std::filesystem::temp_directory_path() / "sorvel-upload-bench.wav").string();
    const uint64 bytes = mebibytes << 20;
    if (!writeSparseWave(path, bytes))
    {
        std::fprintf(stderr, "upload_session_bench: cannot write %s\n", path.c_str());
        return 1;
    }
    const double megabytes = static_cast<double>(bytes) / 1e6;
    std::printf("file: %llu MiB (sparse), sandbox on 127.0.0.1:%d, discarding target on 127.0.0.1:%d\n",
                static_cast<unsigned long long>(mebibytes), sandbox.port(), target.port());

    // The first read of a sparse file fills the page cache with zeroed pages, which costs the
    // kernel more than the upload itself; read it once beforehand, so that both uploads find it
    // in the cache alike.
    if (std::FILE* warm = std::fopen(path.c_str(), "rb"))
    {
        std::vector<char> block(64 << 10);
        while (std::fread(block.data(), 1, block.size(), warm) == block.size())
        {
        }
        std::fclose(warm);
    }

    // Throughput and memory: the two uploads take turns, and each keeps its best round, so that
    // a burst of other work on the machine does not decide the ratio. Both are sent to the
    // discarding target.
    const std::string targetReply = "{\"status_code\":200,\"data\":{\"url\":\"http://127.0.0.1:" +
                                    std::to_string(target.port()) + "/upload\",\"post_data\":{}}}";
    sandbox.injectFault(SorvelSandbox::Endpoint::UploadToken, SorvelSandbox::Fault::replacedBody(targetReply), 1,
                        static_cast<unsigned>(2 * rounds));
    auto watcher = makeRef<Watcher>();
    double sessionSeconds = 1e300;
    double curlSeconds = 1e300;
    long growth = 0;
    long curlPeak = 0;
    for (int round = 0; round < rounds; ++round)
    {
        const long peakBefore = peakKiB();
        bool ok = false;
        sessionSeconds = std::min(sessionSeconds, runBatch(configuration, path, *watcher, ok));
        growth = std::max(growth, peakKiB() - peakBefore);
        std::string url;
        std::vector<std::string> fields;
        double seconds = 0;
        long peak = 0;
        const bool targetOk = uploadTarget(configuration, url, fields);
        if (!targetOk)
            std::fprintf(stderr, "upload_session_bench: no upload address for curl\n");
        const bool curlOk = targetOk && runCurl(url, fields, path, seconds, peak);
        if (!ok || !curlOk)
        {
            std::fprintf(stderr, "upload_session_bench: an upload failed (session %s, curl %s)\n",
                         ok ? "ok" : "failed", curlOk ? "ok" : "failed");
            return 1;
        }
        curlSeconds = std::min(curlSeconds, seconds);
        curlPeak = std::max(curlPeak, peak);
    }
    std::printf("upload session: %8.1f MB/s  peak memory growth %6ld KiB (this process)\n",
                megabytes / sessionSeconds, growth);
    std::printf("curl -F:        %8.1f MB/s  peak memory %6ld KiB\n", megabytes / curlSeconds, curlPeak);
    std::printf("ratio (session / curl): %.2f\n", curlSeconds / sessionSeconds);

    // Cancel latency while data flows, at random points of the file.
    std::mt19937 random(7);
    std::uniform_real_distribution<double> point(0.05, 0.9);
    std::vector<double> flowing;
    for (int i = 0; i < cancels; ++i)
    {
        watcher->cancelAt = point(random);
        bool ok = false;
        runBatch(configuration, path, *watcher, ok);
        if (watcher->canceledAt && watcher->finished)
            flowing.push_back(std::chrono::duration<double, std::milli>(*watcher->finished - *watcher->canceledAt).count());
    }

    // Cancel latency when the server has stopped reading: the upload address leads to a server
    // that accepts and never reads, and the cancel comes once the transfer is under way.
    StalledServer stalled;
    const std::string stallReply = "{\"status_code\":200,\"data\":{\"url\":\"http://127.0.0.1:" +
                                   std::to_string(stalled.port()) + "/upload\",\"post_data\":{}}}";
    std::vector<double> stalledLatency;
    for (int i = 0; i < std::min(cancels, 5); ++i)
    {
        sandbox.injectFault(SorvelSandbox::Endpoint::UploadToken, SorvelSandbox::Fault::replacedBody(stallReply));
        watcher->cancelAt = 0.0; // the first report shows the transfer under way
        watcher->markOnly = true;
        auto session = makeRef<UploadSession>();
        session->setConfiguration(configuration);
        session->addObserver(watcher);
        watcher->session = session;
        watcher->finished.reset();
        watcher->canceledAt.reset();
        auto title = makeRef<Title>();
        title->name = String("Stalled");
        auto track = makeRef<LocalTrack>();
        track->url = Url::fromNativePath(String(path));
        track->incompatible = false;
        session->setTitle(title);
        session->addEntry(makeRef<UploadSession::Entry>(track, String()));
        session->start();
        // Let the server's buffers fill, then cancel.
        EventWait::until([&] { return watcher->canceledAt.has_value(); }, 10000);
        watcher->canceledAt.reset();
        watcher->cancelAt = 2.0;
        watcher->markOnly = false;
        EventWait::runFor(500);
        const auto cancelled = Clock::now();
        session->cancel();
        EventWait::until([&] { return watcher->finished.has_value(); }, 60000);
        if (watcher->finished)
            stalledLatency.push_back(std::chrono::duration<double, std::milli>(*watcher->finished - cancelled).count());
        session->removeObserver(watcher);
        watcher->session = nullptr;
    }
    std::printf("cancel while data flows (%zu): p50 %.1f ms, p99 %.1f ms\n", flowing.size(), percentile(flowing, 0.5),
                percentile(flowing, 0.99));
    std::printf("cancel with the server not reading (%zu): p50 %.1f ms, p99 %.1f ms\n", stalledLatency.size(),
                percentile(stalledLatency, 0.5), percentile(stalledLatency, 0.99));
    std::filesystem::remove(path);
    sandbox.stop();
    return 0;
}
