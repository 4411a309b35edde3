#pragma once

#include "framework/core/UID.h"

namespace KVX {

/// The base of every interface. The first three operations of every interface are these.
///
/// Reference counting: an object starts with one reference, owned by whoever created it (see
/// Ref.h). retain() adds one, release() drops one and destroys the object at zero; both may be
/// called from any thread. queryInterface() hands out a pointer that carries a new reference,
/// which the caller must release.
class IUnknown
{
public:
    /// Looks up the interface `iid`. On success stores a retained pointer in `*object` and returns
    /// kResultOk; otherwise stores nullptr and returns kInvalidArgument.
    virtual tresult queryInterface(const UID& iid, void** object) = 0;
    virtual uint32 retain() = 0;
    virtual uint32 release() = 0;

    static constexpr UID kIID = UID::fromString("{00000000-0000-0000-C000-000000000046}");

protected:
    ~IUnknown() = default;
};

/// Answers queryInterface for one interface of `this`; use inside a queryInterface override.
#define KVX_QUERY_INTERFACE(iid, object, Interface)                                                \
    if ((iid) == Interface::kIID)                                                                  \
    {                                                                                              \
        *(object) = static_cast<Interface*>(this);                                                 \
        static_cast<Interface*>(this)->retain();                                                   \
        return ::KVX::kResultOk;                                                                   \
    }

/// A class that adds interfaces to a reference-counted base (Object, Unknown) inherits IUnknown
/// more than once; this resolves the three operations to the base's implementation.
#define KVX_FORWARD_UNKNOWN(Base)                                                                  \
    ::KVX::uint32 retain() override { return Base::retain(); }                                     \
    ::KVX::uint32 release() override { return Base::release(); }                                  \
    ::KVX::tresult queryInterface(const ::KVX::UID& iid, void** object) override;

} // namespace KVX
