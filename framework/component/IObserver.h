#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class ISubject;
class Message;

/// Receives the signals of the subjects it observes. Called on the user-interface thread.
class IObserver : public IUnknown
{
public:
    virtual void notify(ISubject* subject, Message& message) = 0;

    static constexpr UID kIID = UID::fromString("{2D8F4A61-9B3C-4E5D-8A17-C6F0E2B4D938}");
};

} // namespace KVX
