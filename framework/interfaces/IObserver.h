#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class ISubject;
class IMessage;

/// Receives the signals of the subjects it observes. Called on the user-interface thread (or
/// the thread that owns the subject). The message is valid for the call; an observer that keeps
/// it retains it.
class IObserver : public IUnknown
{
public:
    virtual void notify(ISubject* subject, IMessage& message) = 0;

    static constexpr UID kIID = UID::fromString("{2D8F4A61-9B3C-4E5D-8A17-C6F0E2B4D938}");
};

} // namespace KVX
