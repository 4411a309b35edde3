#include "framework/core/ObjectArray.h"

#include <algorithm>

namespace KVX {

KVX_DEFINE_CLASS(ObjectArray, Object, "ObjectArray")

ObjectArray::ObjectArray(bool owning, size_t growStep) : owning_(owning), growStep_(growStep ? growStep : 1) {}

ObjectArray::ObjectArray(const ObjectArray& other)
    : Object(other), owning_(other.owning_), growStep_(other.growStep_)
{
    items_.reserve(other.items_.capacity());
    for (Object* object : other.items_)
        add(object);
}

ObjectArray& ObjectArray::operator=(const ObjectArray& other)
{
    if (this != &other)
    {
        // Take the new references before dropping the old ones: `other` may be owned by an element.
        std::vector<Object*> old = std::move(items_);
        items_.clear();
        bool wasOwning = owning_;
        owning_ = other.owning_;
        growStep_ = other.growStep_;
        for (Object* object : other.items_)
            add(object);
        if (wasOwning)
            for (Object* object : old)
                object->release();
    }
    return *this;
}

ObjectArray::~ObjectArray()
{
    removeAll();
}

int ObjectArray::indexOf(const Object* object) const
{
    auto it = std::find(items_.begin(), items_.end(), object);
    return it == items_.end() ? -1 : static_cast<int>(it - items_.begin());
}

void ObjectArray::grow()
{
    if (items_.size() == items_.capacity())
        items_.reserve(items_.capacity() + growStep_);
}

bool ObjectArray::add(Object* object)
{
    return insertAt(items_.size(), object);
}

bool ObjectArray::insertAt(size_t index, Object* object)
{
    if (!object || index > items_.size())
        return false;
    grow();
    if (owning_)
        object->retain();
    items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(index), object);
    return true;
}

bool ObjectArray::remove(Object* object)
{
    int index = indexOf(object);
    return index >= 0 && removeAt(static_cast<size_t>(index));
}

bool ObjectArray::removeAt(size_t index)
{
    if (index >= items_.size())
        return false;
    Object* object = items_[index];
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
    if (owning_)
        object->release();
    return true;
}

void ObjectArray::removeAll()
{
    std::vector<Object*> old = std::move(items_);
    items_.clear();
    if (owning_)
        for (Object* object : old)
            object->release();
}

} // namespace KVX
