#pragma once

#include "framework/interfaces/IObserver.h"

#include <thread>
#include <vector>

namespace KVX {

class IMessage;

/// The observers of one subject. Stays correct when an observer adds or removes observers during
/// a notification: a removed observer is not called again, one added during a notification is
/// first called by the next one.
///
/// A list belongs to one thread: the thread that first uses it. Debug builds assert that every
/// later use comes from that thread too, which catches a worker reaching into the user interface.
class ObserverList
{
public:
    void add(IObserver* observer);
    void remove(IObserver* observer);
    bool contains(IObserver* observer) const;
    size_t count() const;

    /// Calls notify on every observer. The caller keeps the subject alive for the duration.
    void notifyAll(ISubject* subject, IMessage& message);

private:
    void compact();
    void checkThread() const;

    std::vector<IObserver*> observers_; // nullptr marks an observer removed during a notification
    int notifying_ = 0;
#ifndef NDEBUG
    mutable std::thread::id owner_;
#endif
};

} // namespace KVX
