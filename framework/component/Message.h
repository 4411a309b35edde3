#pragma once

#include "framework/data/Variant.h"
#include "framework/interfaces/IMessage.h"

#include <initializer_list>
#include <vector>

namespace KVX {

/// A signal or message of this module: a name plus optional arguments. Objects among the
/// arguments are held by counted references, so a message posted for later delivery keeps them
/// alive. Observers receive it as an IMessage, since a message may as well come from another
/// module; idOf() and argumentOf() read any IMessage.
class Message : public Object, public IMessage
{
    KVX_DECLARE_CLASS(Message, Object)
public:
    explicit Message(std::string_view id, std::initializer_list<Variant> arguments = {})
        : id_(id), arguments_(arguments)
    {
    }

    /// A new message with its arguments (makeRef cannot forward a braced list).
    static Ref<Message> make(std::string_view id, std::initializer_list<Variant> arguments = {})
    {
        return makeRef<Message>(id, arguments);
    }

    const CString& id() const { return id_; }
    bool is(std::string_view id) const { return id_ == id; }

    size_t argumentCount() const { return arguments_.size(); }
    /// The argument at `index`, or an empty Variant when there is none.
    const Variant& argument(size_t index) const;
    void addArgument(const Variant& value) { arguments_.push_back(value); }

    // IMessage
    const char* getID() override { return id_.c_str(); }
    int32 getArgumentCount() override { return static_cast<int32>(arguments_.size()); }
    tresult getArgument(int32 index, ValueRecord& value) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    CString id_;
    std::vector<Variant> arguments_;
};

/// The name of any message ("" for none).
std::string_view idOf(IMessage& message);
/// A copy of the argument at `index` of any message; empty when there is none.
Variant argumentOf(IMessage& message, int32 index);

} // namespace KVX
