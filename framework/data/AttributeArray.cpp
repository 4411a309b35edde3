#include "framework/data/AttributeArray.h"

#include "framework/data/Attributes.h"

namespace KVX {

KVX_DEFINE_CLASS(AttributeArray, Object, "AttributeArray")

Attributes* AttributeArray::getAttributes(size_t index) const
{
    return index < values_.size() ? values_[index].asObject<Attributes>() : nullptr;
}

} // namespace KVX
