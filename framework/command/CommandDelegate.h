#pragma once

#include "framework/command/CommandMessage.h"
#include "framework/core/Object.h"
#include "framework/core/Ref.h"

namespace KVX {

/// Hands the commands of a menu entry to a member function of an object, so that a class can
/// serve several menus without implementing ICommandHandler itself. The method answers as
/// interpretCommand does, as a bool: with checkOnly it only says whether it could run. The
/// target is retained while the delegate lives (a menu lives only while it is shown).
/// User-interface thread.
template <class T> class CommandDelegate : public Object, public ICommandHandler
{
public:
    using Method = bool (T::*)(const CommandMessage&);

    CommandDelegate(T* target, Method method) : target_(target), method_(method) {}

    static Ref<CommandDelegate> make(T* target, Method method) { return makeRef<CommandDelegate>(target, method); }

    tresult interpretCommand(const CommandRecord& command) override
    {
        if (!target_ || !method_)
            return kInvalidArgument;
        return ((*target_).*method_)(CommandMessage(command)) ? kResultOk : kInvalidArgument;
    }

    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, ICommandHandler)
        return Object::queryInterface(iid, object);
    }

private:
    Ref<T> target_;
    Method method_;
};

} // namespace KVX
