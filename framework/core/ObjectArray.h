#pragma once

#include "framework/core/Object.h"

#include <vector>

namespace KVX {

/// An ordered array of objects. An owning array holds a counted reference to each element and
/// releases it when the element is removed or the array goes; a non-owning array only points.
/// Capacity grows in whole steps.
class ObjectArray : public Object
{
    KVX_DECLARE_CLASS(ObjectArray, Object)
public:
    explicit ObjectArray(bool owning = true, size_t growStep = 10);
    ObjectArray(const ObjectArray& other);
    ObjectArray& operator=(const ObjectArray& other);
    ~ObjectArray() override;

    bool isOwning() const { return owning_; }
    size_t count() const { return items_.size(); }
    size_t capacity() const { return items_.capacity(); }
    bool isEmpty() const { return items_.empty(); }
    /// The element at `index`, or nullptr when out of range.
    Object* at(size_t index) const { return index < items_.size() ? items_[index] : nullptr; }
    /// The index of `object`, or -1.
    int indexOf(const Object* object) const;
    bool contains(const Object* object) const { return indexOf(object) >= 0; }

    /// Appends `object` (an owning array takes a reference of its own). Null is refused.
    bool add(Object* object);
    bool insertAt(size_t index, Object* object);
    /// Removes the first occurrence of `object`; false when it is not there.
    bool remove(Object* object);
    bool removeAt(size_t index);
    void removeAll();

    std::vector<Object*>::const_iterator begin() const { return items_.begin(); }
    std::vector<Object*>::const_iterator end() const { return items_.end(); }

private:
    void grow();

    std::vector<Object*> items_;
    bool owning_;
    size_t growStep_;
};

/// An ObjectArray whose elements are all of class T.
template <class T>
class TypedObjectArray : public ObjectArray
{
public:
    using ObjectArray::ObjectArray;

    T* at(size_t index) const { return static_cast<T*>(ObjectArray::at(index)); }
    bool add(T* object) { return ObjectArray::add(object); }
    bool insertAt(size_t index, T* object) { return ObjectArray::insertAt(index, object); }

    class Iterator
    {
    public:
        explicit Iterator(std::vector<Object*>::const_iterator it) : it_(it) {}
        T* operator*() const { return static_cast<T*>(*it_); }
        Iterator& operator++()
        {
            ++it_;
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        std::vector<Object*>::const_iterator it_;
    };
    Iterator begin() const { return Iterator(ObjectArray::begin()); }
    Iterator end() const { return Iterator(ObjectArray::end()); }
};

} // namespace KVX
