#pragma once

#include "framework/component/IObserver.h"

#include <vector>

namespace KVX {

/// The observers of one subject. Stays correct when an observer adds or removes observers during
/// a notification: a removed observer is not called again, one added during a notification is
/// first called by the next one.
class ObserverList
{
public:
    void add(IObserver* observer);
    void remove(IObserver* observer);
    bool contains(IObserver* observer) const;
    size_t count() const;

    /// Calls notify on every observer. The caller keeps the subject alive for the duration.
    void notifyAll(ISubject* subject, Message& message);

private:
    void compact();

    std::vector<IObserver*> observers_; // nullptr marks an observer removed during a notification
    int notifying_ = 0;
};

} // namespace KVX
