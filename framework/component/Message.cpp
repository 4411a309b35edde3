#include "framework/component/Message.h"

namespace KVX {

KVX_DEFINE_CLASS(Message, Object, "Message")

tresult Message::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IMessage)
    return Object::queryInterface(iid, object);
}

const Variant& Message::argument(size_t index) const
{
    static const Variant empty;
    return index < arguments_.size() ? arguments_[index] : empty;
}

tresult Message::getArgument(int32 index, ValueRecord& value)
{
    if (index < 0 || static_cast<size_t>(index) >= arguments_.size())
    {
        value = ValueRecord{};
        return kInvalidArgument;
    }
    arguments_[static_cast<size_t>(index)].toRecord(value);
    return kResultOk;
}

std::string_view idOf(IMessage& message)
{
    const char* id = message.getID();
    return id ? std::string_view(id) : std::string_view();
}

Variant argumentOf(IMessage& message, int32 index)
{
    ValueRecord record;
    if (message.getArgument(index, record) != kResultOk)
        return Variant();
    return Variant::fromRecord(record);
}

} // namespace KVX
