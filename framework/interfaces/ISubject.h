#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IObserver;
class IMessage;

/// Something that others observe: a component, a parameter, a request object.
///
/// Observers are not retained: an observer removes itself before it goes away. Every operation
/// belongs to the user-interface thread (request objects: the thread that owns them).
class ISubject : public IUnknown
{
public:
    /// Adds `observer`; adding one that is already there does nothing.
    virtual void addObserver(IObserver* observer) = 0;
    /// Removes `observer`; it is not called again, also when the subject is signalling now.
    virtual void removeObserver(IObserver* observer) = 0;
    /// Sends `message` to every observer now. An observer may add or remove observers, or drop
    /// the last reference to the subject, while it is being notified.
    virtual void signal(IMessage& message) = 0;

    static constexpr UID kIID = UID::fromString("{7C4E1B93-2F6A-4D08-B5E3-91A7D0C6F254}");
};

} // namespace KVX
