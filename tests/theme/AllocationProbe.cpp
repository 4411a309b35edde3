#include "AllocationProbe.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> watching{false};
std::atomic<std::size_t> largestRequest{0};

void* allocate(std::size_t size)
{
    if (watching.load(std::memory_order_relaxed))
    {
        std::size_t seen = largestRequest.load(std::memory_order_relaxed);
        while (size > seen && !largestRequest.compare_exchange_weak(seen, size, std::memory_order_relaxed))
        {
        }
    }
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

} // namespace

// The replacements keep malloc and free as the only allocator underneath, so the sanitizers
// still see every block.
void* operator new(std::size_t size)
{
    return allocate(size);
}

void* operator new[](std::size_t size)
{
    return allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace ThemeTests {

AllocationProbe::AllocationProbe()
{
    largestRequest.store(0, std::memory_order_relaxed);
    watching.store(true, std::memory_order_relaxed);
}

AllocationProbe::~AllocationProbe()
{
    watching.store(false, std::memory_order_relaxed);
}

std::size_t AllocationProbe::largest() const
{
    return largestRequest.load(std::memory_order_relaxed);
}

} // namespace ThemeTests
