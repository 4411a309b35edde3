#pragma once

// A TCP socket bound to a free port on 127.0.0.1, for tests that play a misbehaving server or
// need a port where nothing listens.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

/// A port on 127.0.0.1 where nothing listens (free when asked).
inline int closedLoopbackPort()
{
    int port = 0;
    ::close(bindLoopback(port));
    return port;
}

} // namespace TestSupport
