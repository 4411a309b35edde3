// Streams one large multipart body to a loopback sink twice: once through the host's request
// object (a synchronous POST of a stream chain: text pieces around the file, as uploads are
// sent) and once with the curl program (curl -F file=@...). Each upload runs in a child process,
// so that its peak memory is its own; the sink runs in this process and only counts bytes.
//
//   net_upload_bench [--size MiB] [--file PATH] [--rounds N] [--buffer-kib K]
//
// --buffer-kib sets the request object's upload buffer for this run (through the variable
// SORVEL_UPLOAD_BUFFER_KIB), to compare sizes.

#include "framework/services/NetServices.h"
#include "framework/stream/MemoryStream.h"
#include "framework/stream/StreamChain.h"

#include <httplib.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

using namespace KVX;

namespace {

/// The file as a read stream, for the request object's body.
class FileStream : public Object, public IStream
{
public:
    explicit FileStream(int fd) : fd_(fd) {}
    ~FileStream() override { ::close(fd_); }
    int64 read(void* buffer, int64 size) override { return ::read(fd_, buffer, static_cast<size_t>(size)); }
    int64 write(const void*, int64) override { return -1; }
    int64 seek(int64 offset, SeekMode mode) override
    {
        return ::lseek(fd_, offset, mode == kSeekSet ? SEEK_SET : mode == kSeekCurrent ? SEEK_CUR : SEEK_END);
    }
    int64 tell() override { return ::lseek(fd_, 0, SEEK_CUR); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IStream)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }

private:
    int fd_;
};

struct Outcome
{
    double seconds = 0;
    long peakKiB = 0;
    bool ok = false;
};

/// Runs `child` in a child process and measures its time and peak resident memory.
template <class F>
Outcome measure(F child)
{
    auto start = std::chrono::steady_clock::now();
    pid_t pid = fork();
    if (pid == 0)
        _exit(child() ? 0 : 1);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    Outcome outcome;
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    outcome.peakKiB = usage.ru_maxrss;
    outcome.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return outcome;
}

bool uploadWithRequestObject(const std::string& url, const std::string& path)
{
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    auto file = makeRef<FileStream>(fd);
    int64 size = file->seek(0, IStream::kSeekEnd);
    file->seek(0, IStream::kSeekSet);
    const std::string boundary = "----------------------------XXBOUNDARY1A2B";
    auto head = makeRef<MemoryStream>();
    head->write("--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"bench.wav\"\r\n" +
                "Content-Type: application/octet-stream\r\n\r\n");
    head->seek(0, IStream::kSeekSet);
    auto tail = makeRef<MemoryStream>();
    tail->write("\r\n--" + boundary + "--\r\n");
    tail->seek(0, IStream::kSeekSet);
    auto body = makeRef<StreamChain>();
    body->append(head, static_cast<int64>(head->size()));
    body->append(file, size);
    body->append(tail, static_cast<int64>(tail->size()));

    Web::IXMLHttpRequest* raw = nullptr;
    GetWebService()->createRequest(&raw);
    auto request = Ref<Web::IXMLHttpRequest>::adopt(raw);
    request->open("POST", url.c_str(), false, "", "");
    request->setRequestHeader("Content-Type", ("multipart/form-data; boundary=" + boundary).c_str());
    if (request->send(static_cast<IStream*>(body.get()), nullptr) != kResultOk)
    {
        std::fprintf(stderr, "request object: %s\n", request->getErrorText());
        return false;
    }
    return request->getStatus() == 200;
}

bool uploadWithCurl(const std::string& url, const std::string& path)
{
    int null = ::open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    std::string form = "file=@" + path;
    execlp("curl", "curl", "-sS", "--fail", "-H", "Expect:", "-F", form.c_str(), url.c_str(), static_cast<char*>(nullptr));
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    long sizeMiB = 1024;
    int rounds = 1;
    std::string path;
    for (int i = 1; i < argc; ++i)
    {
        std::string arg = argv[i];
        if (arg == "--size" && i + 1 < argc)
            sizeMiB = std::atol(argv[++i]);
        else if (arg == "--file" && i + 1 < argc)
            path = argv[++i];
        else if (arg == "--rounds" && i + 1 < argc)
            rounds = std::atoi(argv[++i]);
        else if (arg == "--buffer-kib" && i + 1 < argc)
            setenv("SORVEL_UPLOAD_BUFFER_KIB", argv[++i], 1);
        else
        {
            std::printf("usage: %s [--size MiB (default 1024)] [--file PATH] [--rounds N] [--buffer-kib K]\n",
                        argv[0]);
            return arg == "--help" ? 0 : 2;
        }
    }
    if (sizeMiB <= 0 || rounds <= 0)
    {
        std::fprintf(stderr, "size and rounds must be positive\n");
        return 2;
    }

    bool ownFile = path.empty();
    if (ownFile)
    {
        char name[] = "/tmp/sorvel-bench-XXXXXX";
        int fd = mkstemp(name);
        if (fd < 0)
            return 1;
        std::string block(1 << 20, '\0');
        for (size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<char>(i * 131 + 7);
        for (long i = 0; i < sizeMiB; ++i)
            if (::write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size()))
                return 1;
        ::close(fd);
        path = name;
    }

    httplib::Server sink;
    std::atomic<uint64_t> received{0};
    sink.Post("/sink", [&](const httplib::Request&, httplib::Response& res, const httplib::ContentReader& reader) {
        uint64_t total = 0;
        reader([](const httplib::MultipartFormData&) { return true; },
               [&](const char*, size_t length) {
                   total += length;
                   return true;
               });
        received = total;
        res.set_content(std::to_string(total), "text/plain");
    });
    int port = sink.bind_to_any_port("127.0.0.1");
    std::thread server([&] { sink.listen_after_bind(); });
    while (!sink.is_running())
        std::this_thread::yield();
    std::string url = "http://127.0.0.1:" + std::to_string(port) + "/sink";

    double bytes = static_cast<double>(sizeMiB) * 1048576.0;
    Outcome best[2];
    for (int round = 0; round < rounds; ++round)
    {
        received = 0;
        Outcome object = measure([&] { return uploadWithRequestObject(url, path); });
        object.ok = object.ok && received == static_cast<uint64_t>(bytes);
        received = 0;
        Outcome curl = measure([&] { return uploadWithCurl(url, path); });
        curl.ok = curl.ok && received == static_cast<uint64_t>(bytes);
        if (!object.ok || !curl.ok)
        {
            std::fprintf(stderr, "an upload failed (request object %s, curl %s)\n", object.ok ? "ok" : "failed",
                         curl.ok ? "ok" : "failed");
            sink.stop();
            server.join();
            return 1;
        }
        if (round == 0 || object.seconds < best[0].seconds)
            best[0] = object;
        if (round == 0 || curl.seconds < best[1].seconds)
            best[1] = curl;
    }
    sink.stop();
    server.join();
    if (ownFile)
        std::remove(path.c_str());

    auto rate = [&](const Outcome& o) { return bytes / o.seconds / 1e6; };
    std::printf("body: %ld MiB, best of %d round(s), loopback sink\n", sizeMiB, rounds);
    std::printf("request object: %8.1f MB/s  peak memory %6ld KiB\n", rate(best[0]), best[0].peakKiB);
    std::printf("curl -F:        %8.1f MB/s  peak memory %6ld KiB\n", rate(best[1]), best[1].peakKiB);
    std::printf("ratio (request object / curl): %.2f\n", rate(best[0]) / rate(best[1]));
    return 0;
}
