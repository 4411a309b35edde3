#include "ConnectionDrop.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>
#include <functional>
#include <string>

namespace SorvelSandbox
{

namespace
{

struct Endpoints
{
    std::string localHost;
    int localPort = 0;
    std::string remoteHost;
    int remotePort = 0;
};

// The address and port of a socket address, in the text form cpp-httplib reports.
bool describe(const sockaddr_storage& address, std::string& host, int& port)
{
    char text[INET6_ADDRSTRLEN] = {};
    if (address.ss_family == AF_INET)
    {
        auto& in = reinterpret_cast<const sockaddr_in&>(address);
        inet_ntop(AF_INET, &in.sin_addr, text, sizeof text);
        port = ntohs(in.sin_port);
    }
    else if (address.ss_family == AF_INET6)
    {
        auto& in6 = reinterpret_cast<const sockaddr_in6&>(address);
        inet_ntop(AF_INET6, &in6.sin6_addr, text, sizeof text);
        port = ntohs(in6.sin6_port);
    }
    else
        return false;
    host = text;
    return true;
}

// The two ends of a connected TCP socket; false for anything else.
bool endpointsOf(int descriptor, Endpoints& ends)
{
    sockaddr_storage local{}, remote{};
    socklen_t localLength = sizeof local, remoteLength = sizeof remote;
    return getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &localLength) == 0 &&
           getpeername(descriptor, reinterpret_cast<sockaddr*>(&remote), &remoteLength) == 0 &&
           describe(local, ends.localHost, ends.localPort) && describe(remote, ends.remoteHost, ends.remotePort);
}

// Resets every connected socket of the process that `matches` picks; returns how many.
int resetSockets(const std::function<bool(const Endpoints&)>& matches)
{
    DIR* folder = opendir("/proc/self/fd");
    if (folder == nullptr)
        return 0;
    int reset = 0;
    while (dirent* entry = readdir(folder))
    {
        const int descriptor = std::atoi(entry->d_name);
        Endpoints ends;
        if (descriptor <= 2 || descriptor == dirfd(folder) || !endpointsOf(descriptor, ends) || !matches(ends))
            continue;
        // A zero linger time turns the close that cpp-httplib makes afterwards into a reset.
        linger immediately{1, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &immediately, sizeof immediately);
        shutdown(descriptor, SHUT_RDWR);
        ++reset;
    }
    closedir(folder);
    return reset;
}

} // namespace

bool dropConnection(const httplib::Request& request)
{
    return resetSockets([&request](const Endpoints& ends) {
               return ends.localPort == request.local_port && ends.remotePort == request.remote_port &&
                      ends.remoteHost == request.remote_addr;
           }) > 0;
}

void dropConnections(int port)
{
    resetSockets([port](const Endpoints& ends) { return ends.localPort == port; });
}

} // namespace SorvelSandbox
