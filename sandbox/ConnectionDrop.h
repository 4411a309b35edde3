#pragma once

#include <httplib.h>

namespace SorvelSandbox
{

// Breaks the TCP connection that carries `request` at once and with a reset, so that the client
// sees the connection fail without a reply. cpp-httplib gives handlers no access to the socket,
// so it is found among the process's descriptors by the request's local and remote address.
// Returns false when no such socket was found.
bool dropConnection(const httplib::Request& request);

// Shuts down every connection that this process accepted on `port`, idle keep-alive connections
// included, so that a stopping server need not wait for them to time out.
void dropConnections(int port);

} // namespace SorvelSandbox
