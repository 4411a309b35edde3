#pragma once

// Sockets on 127.0.0.1 for tests that play a misbehaving server or need a port that refuses
// connections.

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace TestSupport {

/// A socket bound to 127.0.0.1 on a free port, listening with `backlog` when it is above 0; the
/// port in `port`. The caller closes it.
inline int bindLoopback(int& port, int backlog = 0)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    if (backlog > 0)
        ::listen(fd, backlog);
    return fd;
}

/// A port on 127.0.0.1 that refuses every connection for as long as this lives. The port stays
/// bound without listening, so the system answers each connection with a reset, and no other
/// test running beside this one can be given the port meanwhile (as it could a port only closed).
class RefusingPort
{
public:
    RefusingPort() : fd_(bindLoopback(port_)) {}
    ~RefusingPort() { ::close(fd_); }
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    int port() const { return port_; }

private:
    int port_ = 0;
    int fd_;
};

/// A server on 127.0.0.1 that never answers. What it does with a connection:
/// - `Accepts::none`: nothing, it waits in the backlog, as on a server that hangs;
/// - `Accepts::andCloses`: closes it at once;
/// - `Accepts::andHolds`: keeps it open, reading and dropping what comes, until the client closes
///   it; the server notes when the first connection came and when the client closed the last, so
///   that a test can time the client's waits apart from the time its program takes to start and
///   end (seconds, under a sanitizer on a busy machine).
class MuteServer
{
public:
    enum class Accepts
    {
        none,
        andCloses,
        andHolds,
    };

    explicit MuteServer(Accepts accepts) : accepts_(accepts)
    {
        if (accepts_ != Accepts::none)
            thread_ = std::thread([this] { serve(); });
    }
    ~MuteServer() { (void)secondsConnected(); }
    MuteServer(const MuteServer&) = delete;
    MuteServer& operator=(const MuteServer&) = delete;

    int port() const { return port_; }

    /// Stops the server, giving a client that still holds connections 10 s to close them. Then
    /// the seconds from the first connection to the close of the last (`Accepts::andHolds`); -1
    /// without a connection, with one left open, or when the server does not note them.
    double secondsConnected()
    {
        stopping_ = true;
        if (listening_ >= 0)
        {
            if (thread_.joinable())
                thread_.join();
            ::close(listening_);
            listening_ = -1;
        }
        if (!firstConnected_ || !lastClosed_ || open_ > 0)
            return -1;
        return std::chrono::duration<double>(*lastClosed_ - *firstConnected_).count();
    }

private:
    void serve()
    {
        std::vector<pollfd> watched = {{listening_, POLLIN, 0}};
        for (int waited = 0; !stopping_ || (watched.size() > 1 && waited < 200);)
        {
            if (::poll(watched.data(), watched.size(), 50) <= 0)
            {
                waited += stopping_ ? 1 : 0;
                continue;
            }
            char buffer[4096];
            for (size_t index = watched.size() - 1; index > 0; --index)
                if (watched[index].revents != 0 && ::read(watched[index].fd, buffer, sizeof buffer) <= 0)
                {
                    lastClosed_ = std::chrono::steady_clock::now();
                    ::close(watched[index].fd);
                    watched.erase(watched.begin() + static_cast<std::ptrdiff_t>(index));
                }
            const int client = (watched[0].revents & POLLIN) ? ::accept(listening_, nullptr, nullptr) : -1;
            if (client < 0)
                continue;
            if (accepts_ == Accepts::andCloses)
            {
                ::close(client);
                continue;
            }
            firstConnected_ = firstConnected_.value_or(std::chrono::steady_clock::now());
            watched.push_back({client, POLLIN, 0});
        }
        open_ = watched.size() - 1;
        for (size_t index = 1; index < watched.size(); ++index)
            ::close(watched[index].fd);
    }

    const Accepts accepts_;
    int port_ = 0;
    int listening_ = bindLoopback(port_, 16);
    std::atomic<bool> stopping_{false};
    std::thread thread_;
    // Written by the serving thread, read once it has ended.
    std::optional<std::chrono::steady_clock::time_point> firstConnected_, lastClosed_;
    size_t open_ = 0;
};

} // namespace TestSupport
