#pragma once

#include "framework/core/IUnknown.h"

#include <atomic>

namespace KVX {

/// Reference-counting implementation of IUnknown. The count is atomic, so references may be
/// taken and dropped on any thread; the object is destroyed by the release that brings it to zero.
/// A new object starts with one reference, which its creator owns (see Ref.h).
class Unknown : public IUnknown
{
public:
    tresult queryInterface(const UID& iid, void** object) override;
    uint32 retain() override;
    uint32 release() override;

    /// For tests and assertions only: the count can change at any moment on other threads.
    uint32 referenceCount() const { return count_.load(std::memory_order_relaxed); }

protected:
    Unknown() = default;
    /// A copy is a new object: it starts with its own single reference.
    Unknown(const Unknown&) : IUnknown() {}
    Unknown& operator=(const Unknown&) { return *this; }
    virtual ~Unknown() = default;

private:
    std::atomic<uint32> count_{1};
};

} // namespace KVX
