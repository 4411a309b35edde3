#pragma once

#include <httplib.h>

#include <atomic>
#include <cstdint>
#include <functional>

namespace SorvelSandbox
{

// The server's task queue. cpp-httplib hands it one task per accepted connection, which serves
// that connection's requests one after another on one thread of the pool; this queue numbers the
// connections from 1 in the order they were accepted, so that a handler can tell which connection
// its request came on (the library tells handlers nothing of their connection).
class NumberedConnections : public httplib::TaskQueue
{
public:
    explicit NumberedConnections(size_t threads) : pool(threads) {}

    void enqueue(std::function<void()> task) override;
    void shutdown() override { pool.shutdown(); }

    // The number of the connection that the calling thread serves now; 0 on any other thread.
    static uint64_t current();

private:
    httplib::ThreadPool pool;
    std::atomic<uint64_t> accepted{0};
};

} // namespace SorvelSandbox
