#include "framework/core/Unknown.h"

#include <cstdio>
#include <cstdlib>

namespace KVX {

tresult Unknown::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IUnknown)
    *object = nullptr;
    return kInvalidArgument;
}

uint32 Unknown::retain()
{
    return count_.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint32 Unknown::release()
{
    // acq_rel: every write made through other references happens before the destruction.
    uint32 remaining = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (remaining == 0)
    {
        if (embedded_)
        {
            // The owner's reference is gone: someone adopted or over-released an object that
            // lives inside another. Deleting it would free memory it does not own.
            std::fputs("KVX: an embedded object lost its owner's reference\n", stderr);
            std::abort();
        }
        delete this;
    }
    return remaining;
}

} // namespace KVX
