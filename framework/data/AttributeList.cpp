#include "framework/data/AttributeList.h"

namespace KVX {

KVX_DEFINE_CLASS(AttributeList, Object, "AttributeList")

tresult AttributeList::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAttributeList)
    return Object::queryInterface(iid, object);
}

const char* AttributeList::getAttributeName(int32 index)
{
    if (index < 0 || static_cast<size_t>(index) >= attributes_.count())
        return nullptr;
    return attributes_.at(static_cast<size_t>(index)).name.c_str();
}

tresult AttributeList::getAttributeValue(int32 index, ValueRecord& value)
{
    if (index < 0 || static_cast<size_t>(index) >= attributes_.count())
    {
        value = ValueRecord{};
        return kInvalidArgument;
    }
    attributes_.at(static_cast<size_t>(index)).value.toRecord(value);
    return kResultOk;
}

tresult AttributeList::findAttribute(const char* name, ValueRecord& value)
{
    const Variant* found = name ? attributes_.find(name) : nullptr;
    if (!found)
    {
        value = ValueRecord{};
        return kInvalidArgument;
    }
    found->toRecord(value);
    return kResultOk;
}

tresult AttributeList::setAttribute(const char* name, const ValueRecord& value)
{
    if (!name || !*name || value.type < ValueRecord::kEmpty || value.type > ValueRecord::kObject)
        return kInvalidArgument;
    attributes_.set(name, Variant::fromRecord(value));
    return kResultOk;
}

Attributes AttributeList::copyFrom(IAttributeList& list, int depthLimit)
{
    Attributes copy;
    const int32 count = list.countAttributes();
    for (int32 i = 0; i < count; ++i)
    {
        const char* name = list.getAttributeName(i);
        ValueRecord record;
        if (!name || list.getAttributeValue(i, record) != kResultOk)
            continue;
        Variant value = Variant::fromRecord(record);
        void* nested = nullptr;
        if (record.type == ValueRecord::kObject && depthLimit > 0 && record.object &&
            record.object->queryInterface(IAttributeList::kIID, &nested) == kResultOk)
        {
            Ref<IAttributeList> inner = Ref<IAttributeList>::adopt(static_cast<IAttributeList*>(nested));
            value = makeRef<Attributes>(copyFrom(*inner, depthLimit - 1));
        }
        copy.add(name, value);
    }
    return copy;
}

} // namespace KVX
