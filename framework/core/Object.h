#pragma once

#include "framework/core/ClassRegistration.h"
#include "framework/core/Unknown.h"

namespace KVX {

/// The base of the framework's and the plug-in's classes: reference counted (Unknown) and
/// recognisable by class name. Derived classes declare themselves with KVX_DECLARE_CLASS in the
/// class body and KVX_DEFINE_CLASS in their source file.
class Object : public Unknown
{
public:
    /// Asking any framework object for this identifier yields its Object (see unknown_cast).
    static constexpr UID kIID = UID::fromString("{6A1F0C52-3C1E-4B8E-9F0D-5B2A7E4C9D10}");

    static const ClassInfo& classInfo();
    virtual const ClassInfo& getClassInfo() const { return classInfo(); }

    const char* className() const { return getClassInfo().name; }
    bool isKindOf(std::string_view className) const { return getClassInfo().isKindOf(className); }

    tresult queryInterface(const UID& iid, void** object) override;
};

#define KVX_DECLARE_CLASS(Class, Parent)                                                           \
public:                                                                                            \
    using SuperClass = Parent;                                                                     \
    static const ::KVX::ClassInfo& classInfo();                                                    \
    const ::KVX::ClassInfo& getClassInfo() const override { return classInfo(); }

#define KVX_DEFINE_CLASS(Class, Parent, Name)                                                      \
    const ::KVX::ClassInfo& Class::classInfo()                                                     \
    {                                                                                              \
        static const ::KVX::ClassInfo info{Name, &Parent::classInfo()};                            \
        return info;                                                                               \
    }                                                                                              \
    static const ::KVX::ClassRegistration registration##Class(Class::classInfo());

/// The object of class T (or derived from it) behind an interface pointer, or nullptr. Takes no
/// reference: the result is valid as long as the caller's reference to `unknown` is.
template <class T>
T* unknown_cast(IUnknown* unknown)
{
    if (!unknown)
        return nullptr;
    void* pointer = nullptr;
    if (unknown->queryInterface(Object::kIID, &pointer) != kResultOk || !pointer)
        return nullptr;
    auto* object = static_cast<Object*>(pointer);
    object->release();
    return object->isKindOf(T::classInfo().name) ? static_cast<T*>(object) : nullptr;
}

/// The same for an Object pointer.
template <class T>
T* object_cast(Object* object)
{
    return object && object->isKindOf(T::classInfo().name) ? static_cast<T*>(object) : nullptr;
}

} // namespace KVX
