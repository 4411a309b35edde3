#include "platform/kvxsystem/SignalHandler.h"

#include "framework/interfaces/IObserver.h"
#include "framework/interfaces/ISubject.h"
#include "framework/interfaces/IMessage.h"
#include "framework/core/Runnable.h"

namespace KVX::System {

KVX_DEFINE_CLASS(SignalHandler, Object, "SignalHandler")

tresult SignalHandler::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISignalHandler)
    return Object::queryInterface(iid, object);
}

// Owners are compared by address, so every delivery names its receiver by the same pointer: the
// object's canonical IUnknown (what queryInterface answers for IUnknown::kIID).
static Ref<IUnknown> canonical(IUnknown* object)
{
    void* pointer = nullptr;
    if (!object || object->queryInterface(IUnknown::kIID, &pointer) != kResultOk)
        return {};
    return Ref<IUnknown>::adopt(static_cast<IUnknown*>(pointer));
}

tresult SignalHandler::postSignal(ISubject* subject, IMessage* message)
{
    if (!subject || !message)
        return kInvalidArgument;
    Ref<ISubject> keptSubject(subject);
    Ref<IMessage> keptMessage(message);
    auto task = Runnable::make([keptSubject, keptMessage] { keptSubject->signal(*keptMessage); });
    return loop_.post(task, canonical(subject));
}

tresult SignalHandler::postMessage(IObserver* receiver, ISubject* sender, IMessage* message)
{
    if (!receiver || !message)
        return kInvalidArgument;
    Ref<IObserver> keptReceiver(receiver);
    Ref<ISubject> keptSender(sender);
    Ref<IMessage> keptMessage(message);
    auto task = Runnable::make(
        [keptReceiver, keptSender, keptMessage] { keptReceiver->notify(keptSender, *keptMessage); });
    return loop_.post(task, canonical(receiver));
}

void SignalHandler::cancelMessages(IUnknown* object)
{
    Ref<IUnknown> key = canonical(object);
    loop_.cancel(key);
}

} // namespace KVX::System
