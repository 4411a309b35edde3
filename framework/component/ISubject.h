#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IObserver;
class Message;

/// Something that others observe. Observers are not retained: an observer removes itself before
/// it goes away. All operations belong to the user-interface thread.
class ISubject : public IUnknown
{
public:
    virtual void addObserver(IObserver* observer) = 0;
    virtual void removeObserver(IObserver* observer) = 0;
    /// Sends `message` to every observer now. An observer may add or remove observers, or drop
    /// the last reference to the subject, while it is being notified.
    virtual void signal(Message& message) = 0;

    static constexpr UID kIID = UID::fromString("{7C4E1B93-2F6A-4D08-B5E3-91A7D0C6F254}");
};

} // namespace KVX
