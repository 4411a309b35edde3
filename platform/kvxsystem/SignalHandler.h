#pragma once

#include "framework/core/Object.h"
#include "framework/services/IRunLoop.h"
#include "framework/services/ISignalHandler.h"

namespace KVX::System {

/// Deferred signals and messages, delivered as tasks of the run loop so that they keep their
/// order with everything else posted there. Each task is posted with its receiver as owner, which
/// both keeps the receiver alive until delivery and lets cancelMessages find it.
class SignalHandler : public Object, public ISignalHandler
{
    KVX_DECLARE_CLASS(SignalHandler, Object)
public:
    explicit SignalHandler(IRunLoop& loop) : loop_(loop) {}

    tresult postSignal(ISubject* subject, IMessage* message) override;
    tresult postMessage(IObserver* receiver, ISubject* sender, IMessage* message) override;
    void cancelMessages(IUnknown* object) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    IRunLoop& loop_;
};

} // namespace KVX::System
