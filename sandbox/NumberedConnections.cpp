#include "NumberedConnections.h"

namespace SorvelSandbox
{

namespace
{

thread_local uint64_t servedConnection = 0;

} // namespace

void NumberedConnections::enqueue(std::function<void()> task)
{
    const uint64_t number = ++accepted;
    pool.enqueue([number, task = std::move(task)] {
        servedConnection = number;
        task();
        servedConnection = 0;
    });
}

uint64_t NumberedConnections::current()
{
    return servedConnection;
}

} // namespace SorvelSandbox
