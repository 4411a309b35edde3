#pragma once

#include <utility>

namespace KVX {

/// A counted object kept by value inside its owner (a client's configuration), rather than on
/// the heap. Its storage is the owner's, so its count must never reach zero: others may share it
/// with Ref while the owner lives, but adopting it (which would take over the owner's reference)
/// or releasing it once too often is a mistake, and the release that would delete it stops the
/// program instead of freeing memory it does not own.
///
/// Every other counted object is made on the heap by makeRef (see Ref.h); this is the one
/// exception, and it is visible in the owner's declaration.
template <class T>
class Embedded final : public T
{
public:
    template <class... Args>
    explicit Embedded(Args&&... args) : T(std::forward<Args>(args)...)
    {
        this->markEmbedded();
    }
    Embedded(const Embedded& other) : T(other) { this->markEmbedded(); }
    Embedded& operator=(const Embedded& other)
    {
        T::operator=(other);
        return *this;
    }
    Embedded& operator=(const T& other)
    {
        T::operator=(other);
        return *this;
    }
};

} // namespace KVX
