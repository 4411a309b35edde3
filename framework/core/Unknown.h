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
    /// Marks an object that lives inside another by value (see Embedded.h): its last reference
    /// is its owner's, and a release that would bring it to zero is a fault, not a deletion.
    void markEmbedded() { embedded_ = true; }
    /// A copy is a new object: it starts with its own single reference (and is not embedded
    /// unless its own owner says so).
    Unknown(const Unknown&) : IUnknown() {}
    Unknown& operator=(const Unknown&) { return *this; }
    virtual ~Unknown() = default;

private:
    std::atomic<uint32> count_{1};
    bool embedded_ = false;
};

} // namespace KVX
