#pragma once

#include <cstddef>
#include <utility>

namespace KVX {

/// The holder of a counted reference to an object (anything with retain() and release()).
///
/// Rule for new objects: an object starts with one reference, and makeRef<T>(...) adopts it, so
/// a fresh object is owned by exactly one Ref. Adopting an existing reference is spelled
/// Ref<T>::adopt(pointer); constructing or assigning from a plain pointer shares the object and
/// takes a reference of its own. Assigning releases the replaced reference at once.
template <class T>
class Ref
{
public:
    Ref() = default;
    Ref(std::nullptr_t) {}
    Ref(T* object) : object_(object)
    {
        if (object_)
            object_->retain();
    }
    Ref(const Ref& other) : Ref(other.object_) {}
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    Ref(const Ref<U>& other) : Ref(other.get())
    {
    }
    template <class U>
    Ref(Ref<U>&& other) noexcept : object_(other.detach())
    {
    }
    ~Ref() { reset(); }

    /// Takes over a reference that the caller already owns (a fresh object, or a pointer that an
    /// interface handed out with a reference).
    static Ref adopt(T* object)
    {
        Ref result;
        result.object_ = object;
        return result;
    }

    Ref& operator=(const Ref& other) { return *this = other.object_; }
    Ref& operator=(Ref&& other) noexcept
    {
        if (this != &other)
        {
            T* old = std::exchange(object_, std::exchange(other.object_, nullptr));
            if (old)
                old->release();
        }
        return *this;
    }
    Ref& operator=(T* object)
    {
        if (object)
            object->retain();
        T* old = std::exchange(object_, object);
        if (old)
            old->release();
        return *this;
    }

    void reset()
    {
        if (T* old = std::exchange(object_, nullptr))
            old->release();
    }

    /// Gives up the reference without releasing it: the caller now owns it.
    [[nodiscard]] T* detach() { return std::exchange(object_, nullptr); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    operator T*() const { return object_; }

private:
    T* object_ = nullptr;
};

/// Creates an object and adopts its initial reference.
template <class T, class... Args>
Ref<T> makeRef(Args&&... args)
{
    return Ref<T>::adopt(new T(std::forward<Args>(args)...));
}

} // namespace KVX
