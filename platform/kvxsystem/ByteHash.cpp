#include "platform/kvxsystem/ByteHash.h"

namespace KVX::System {

uint32 fnv1a32(const void* data, uint64 length)
{
    constexpr uint32 kOffsetBasis = 2166136261u;
    constexpr uint32 kPrime = 16777619u;
    const auto* bytes = static_cast<const uint8*>(data);
    uint32 hash = kOffsetBasis;
    for (uint64 i = 0; i < length; ++i)
    {
        hash ^= bytes[i];
        hash *= kPrime;
    }
    return hash;
}

} // namespace KVX::System
