#include "framework/component/Message.h"

namespace KVX {

KVX_DEFINE_CLASS(Message, Object, "Message")

const Variant& Message::argument(size_t index) const
{
    static const Variant empty;
    return index < arguments_.size() ? arguments_[index] : empty;
}

} // namespace KVX
