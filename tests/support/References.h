#pragma once

#include "framework/core/Ref.h"
#include "framework/core/Types.h"

namespace TestSupport {

/// How many references `object` has now (any class with retain and release).
template <class T>
KVX::uint32 referencesOf(T* object)
{
    const KVX::uint32 count = object->retain() - 1;
    object->release();
    return count;
}

template <class T>
KVX::uint32 referencesOf(const KVX::Ref<T>& object)
{
    return referencesOf(object.get());
}

} // namespace TestSupport
