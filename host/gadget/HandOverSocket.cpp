#include "host/gadget/HandOverSocket.h"

#include "framework/core/Runnable.h"
#include "framework/data/AttributeArray.h"
#include "framework/data/Json.h"
#include "framework/services/SystemServices.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace Host {

using namespace KVX;
namespace fs = std::filesystem;

namespace {

constexpr const char* kSocketName = "gadget.socket";
constexpr const char* kLockName = "gadget.lock";
/// The most a request or an answer may hold.
constexpr size_t kMaxMessage = 1 << 20;
/// How long a peer may take to send its request.
constexpr int kRequestWaitMs = 5000;
/// How long `sorvel add` waits for the gadget's answer (it may be busy rendering a moment).
constexpr int kAnswerWaitMs = 120000;
/// How long `sorvel add` waits for a gadget that holds the lock but does not listen yet.
constexpr auto kStartingWait = std::chrono::seconds(10);

Variant objectVariant(Object* object) { return Variant(object); }

/// Reads one line (without its end) from `fd`, waiting at most `waitMs` in all.
bool readLine(int fd, int waitMs, std::string& line)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    line.clear();
    for (;;)
    {
        if (const size_t end = line.find('\n'); end != std::string::npos)
        {
            line.resize(end);
            return true;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd ready{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0)
            return false;
        char buffer[4096];
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return !line.empty(); // the peer closed after its last line
        if (line.size() + static_cast<size_t>(got) > kMaxMessage)
            return false;
        line.append(buffer, static_cast<size_t>(got));
    }
}

bool writeAll(int fd, const std::string& text)
{
    for (size_t sent = 0; sent < text.size();)
    {
        const ssize_t put = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        sent += static_cast<size_t>(put);
    }
    return true;
}

/// The user on the other end of a connected unix socket, or -1.
long peerUser(int fd)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0 ? static_cast<long>(credentials.uid) : -1;
}

bool addressOf(const fs::path& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return true;
}

std::string requestText(const HandOverSocket::Request& request)
{
    Attributes document;
    auto files = makeRef<AttributeArray>();
    for (const std::string& file : request.files)
        files->append(String(file));
    document.set("files", objectVariant(files.get()));
    document.set("product", String(request.product));
    auto fields = makeRef<Attributes>();
    for (const auto& [key, values] : request.fields)
    {
        auto list = makeRef<AttributeArray>();
        for (const std::string& value : values)
            list->append(String(value));
        fields->set(key, objectVariant(list.get()));
    }
    document.set("fields", objectVariant(fields.get()));
    return Json::toText(document) + "\n";
}

bool parseRequest(const std::string& text, HandOverSocket::Request& request)
{
    Attributes document;
    if (!Json::load(document, text))
        return false;
    AttributeArray* files = document.getArray("files");
    if (!files || files->count() == 0)
        return false;
    for (const Variant& file : *files)
        request.files.push_back(file.toString().toUtf8());
    request.product = document.getString("product").toUtf8();
    if (Attributes* fields = document.getAttributes("fields"))
        for (const auto& member : *fields)
            if (auto* values = member.value.asObject<AttributeArray>())
                for (const Variant& value : *values)
                    request.fields[std::string(member.name.view())].push_back(value.toString().toUtf8());
    return true;
}

} // namespace

fs::path HandOverSocket::folder(std::string& error)
{
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const bool own = runtime && runtime[0] == '/';
    const fs::path path = own ? fs::path(runtime) / "sorvel" : fs::path("/tmp") / ("sorvel-" + std::to_string(::getuid()));
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
    {
        error = "cannot create " + path.string() + ": " + std::strerror(errno);
        return {};
    }
    struct stat status{};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != ::getuid())
    {
        error = path.string() + " is not a folder of this user's own";
        return {};
    }
    if ((status.st_mode & 077) != 0 && ::chmod(path.c_str(), 0700) != 0)
    {
        error = path.string() + " can be entered by other users";
        return {};
    }
    return path;
}

std::unique_ptr<HandOverSocket> HandOverSocket::open(Handler handler, std::string& note)
{
    std::string error;
    const fs::path place = folder(error);
    if (place.empty())
    {
        note = "`sorvel add` cannot reach this gadget: " + error;
        return nullptr;
    }
    std::unique_ptr<HandOverSocket> socket(new HandOverSocket(std::move(handler)));
    socket->lockFd_ = ::open((place / kLockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (socket->lockFd_ < 0 || ::flock(socket->lockFd_, LOCK_EX | LOCK_NB) != 0)
    {
        note = "another gadget of this user takes the files of `sorvel add`";
        return nullptr;
    }
    // A socket still there belongs to a gadget that ended without removing it: the lock was free.
    socket->socketPath_ = place / kSocketName;
    ::unlink(socket->socketPath_.c_str());
    sockaddr_un address{};
    socket->listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (!addressOf(socket->socketPath_, address) || socket->listenFd_ < 0 ||
        ::bind(socket->listenFd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::chmod(socket->socketPath_.c_str(), 0600) != 0 || ::listen(socket->listenFd_, 8) != 0)
    {
        note = "`sorvel add` cannot reach this gadget: " + socket->socketPath_.string() + ": " + std::strerror(errno);
        return nullptr;
    }
    socket->stopFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (socket->stopFd_ < 0)
    {
        note = std::string("`sorvel add` cannot reach this gadget: ") + std::strerror(errno);
        return nullptr;
    }
    socket->thread_ = std::thread([raw = socket.get()] { raw->serve(); });
    return socket;
}

HandOverSocket::~HandOverSocket()
{
    if (thread_.joinable())
    {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        answered_.notify_all();
        const std::uint64_t one = 1;
        if (::write(stopFd_, &one, sizeof one) != sizeof one)
            ::shutdown(listenFd_, SHUT_RDWR); // wakes the wait as well
        thread_.join();
    }
    GetRunLoop()->cancel(owner_);
    if (listenFd_ >= 0)
    {
        ::close(listenFd_);
        ::unlink(socketPath_.c_str()); // still under the lock: it is this gadget's to remove
    }
    for (int fd : {stopFd_, lockFd_})
        if (fd >= 0)
            ::close(fd);
}

void HandOverSocket::serve()
{
    for (;;)
    {
        pollfd ready[2] = {{listenFd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
        if (::poll(ready, 2, -1) < 0 && errno != EINTR)
            return;
        if (ready[1].revents || (ready[0].revents & (POLLERR | POLLHUP)))
            return;
        if (!(ready[0].revents & POLLIN))
            continue;
        const int connection = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0)
            continue;
        // Only the user who runs the gadget hands it files.
        if (peerUser(connection) == static_cast<long>(::getuid()))
            answer(connection);
        ::close(connection);
        std::lock_guard lock(mutex_);
        if (stopping_)
            return;
    }
}

void HandOverSocket::answer(int connection)
{
    std::string line;
    Request request;
    Answer answer;
    if (!readLine(connection, kRequestWaitMs, line) || !parseRequest(line, request))
        answer.error = "the request could not be read";
    else
    {
        // The request is the user-interface thread's to take; this thread waits for its answer.
        struct Job
        {
            Answer answer;
            bool done = false;
        };
        auto job = std::make_shared<Job>();
        GetRunLoop()->post(Runnable::make([this, job, request] {
                               Answer taken = handler_(request);
                               std::lock_guard lock(mutex_);
                               job->answer = std::move(taken);
                               job->done = true;
                               answered_.notify_all();
                           }),
                           owner_);
        std::unique_lock lock(mutex_);
        answered_.wait(lock, [&] { return job->done || stopping_; });
        answer = job->done ? job->answer : Answer{"the gadget is closing", 0, {}};
    }
    Attributes document;
    document.set("taken", static_cast<int64>(answer.taken));
    document.set("address", String(answer.address));
    if (!answer.error.empty())
        document.set("error", String(answer.error));
    writeAll(connection, Json::toText(document) + "\n");
}

HandOverSocket::Delivery HandOverSocket::send(const Request& request, Answer& answer, std::string& error)
{
    const fs::path place = folder(error);
    if (place.empty())
        return Delivery::Failed;
    sockaddr_un address{};
    if (!addressOf(place / kSocketName, address))
    {
        error = "the path of the gadget's socket is too long: " + (place / kSocketName).string();
        return Delivery::Failed;
    }
    const auto startingUntil = std::chrono::steady_clock::now() + kStartingWait;
    int fd = -1;
    for (;;)
    {
        fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
        {
            error = std::string("cannot reach the gadget: ") + std::strerror(errno);
            return Delivery::Failed;
        }
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            break;
        const int failure = errno;
        ::close(fd);
        if (failure != ENOENT && failure != ECONNREFUSED)
        {
            error = std::string("cannot reach the gadget: ") + std::strerror(failure);
            return Delivery::Failed;
        }
        // Nobody listens. A gadget that holds the lock is starting; otherwise there is none (a
        // socket left behind belonged to one that died).
        const int lock = ::open((place / kLockName).c_str(), O_RDONLY | O_CLOEXEC);
        const bool held = lock >= 0 && ::flock(lock, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        if (lock >= 0)
            ::close(lock);
        if (!held || std::chrono::steady_clock::now() >= startingUntil)
            return Delivery::NoGadget;
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the starting gadget's socket appears soon
    }
    const bool mine = peerUser(fd) == static_cast<long>(::getuid());
    std::string line;
    const bool exchanged = mine && writeAll(fd, requestText(request)) && readLine(fd, kAnswerWaitMs, line);
    ::close(fd);
    if (!mine)
    {
        error = "the gadget's socket in " + place.string() + " belongs to another user";
        return Delivery::Failed;
    }
    Attributes document;
    if (!exchanged || !Json::load(document, line))
    {
        error = "the open gadget did not answer";
        return Delivery::Failed;
    }
    answer.taken = static_cast<int>(document.getInt64("taken"));
    answer.address = document.getString("address").toUtf8();
    answer.error = document.getString("error").toUtf8();
    return Delivery::Taken;
}

} // namespace Host
