#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IMessage;
class IObserver;
class ISubject;

/// Deferred delivery of signals and messages on the user-interface thread, through its run loop.
/// Deliveries keep posting order, also with other work posted to the loop. Until a delivery has
/// happened (or been cancelled) the handler holds references to the message and to its receiver,
/// so a deferred message never reaches an object that is gone.
class ISignalHandler : public IUnknown
{
public:
    /// Later, on the user-interface thread: subject->signal(*message). Any thread.
    virtual tresult postSignal(ISubject* subject, IMessage* message) = 0;
    /// Later, on the user-interface thread: receiver->notify(sender, *message). `sender` may be
    /// null. Any thread.
    virtual tresult postMessage(IObserver* receiver, ISubject* sender, IMessage* message) = 0;
    /// Drops every pending delivery whose receiver (or signalling subject) is `object`. Any thread.
    virtual void cancelMessages(IUnknown* object) = 0;

    static constexpr UID kIID = UID::fromString("{3A6E9D27-C41B-4F85-9B3D-07E2A8C5F161}");
};

} // namespace KVX
