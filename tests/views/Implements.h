#pragma once

// The reference counting and interface lookup that every test double of one interface shares.

#include "framework/core/Object.h"

namespace ViewTests {

/// An Object that also is an `Interface`: counted by Object, and found by queryInterface under
/// the interface's identifier as well as under Object's.
template <class Interface>
class Implements : public KVX::Object, public Interface
{
public:
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, Interface)
        return Object::queryInterface(iid, object);
    }
};

} // namespace ViewTests
