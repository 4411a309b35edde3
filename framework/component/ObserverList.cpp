#include "framework/component/ObserverList.h"

#include <algorithm>
#include <cassert>

namespace KVX {

void ObserverList::checkThread() const
{
#ifndef NDEBUG
    if (owner_ == std::thread::id())
        owner_ = std::this_thread::get_id();
    assert(owner_ == std::this_thread::get_id() && "an observer list is used from a thread that does not own it");
#endif
}

void ObserverList::add(IObserver* observer)
{
    checkThread();
    if (observer && !contains(observer))
        observers_.push_back(observer);
}

void ObserverList::remove(IObserver* observer)
{
    checkThread();
    auto it = std::find(observers_.begin(), observers_.end(), observer);
    if (it == observers_.end())
        return;
    if (notifying_ > 0)
        *it = nullptr;
    else
        observers_.erase(it);
}

bool ObserverList::contains(IObserver* observer) const
{
    return observer && std::find(observers_.begin(), observers_.end(), observer) != observers_.end();
}

size_t ObserverList::count() const
{
    return static_cast<size_t>(std::count_if(observers_.begin(), observers_.end(), [](IObserver* o) { return o; }));
}

void ObserverList::notifyAll(ISubject* subject, IMessage& message)
{
    checkThread();
    ++notifying_;
    size_t end = observers_.size();
    for (size_t i = 0; i < end && i < observers_.size(); ++i)
        if (IObserver* observer = observers_[i])
            observer->notify(subject, message);
    if (--notifying_ == 0)
        compact();
}

void ObserverList::compact()
{
    observers_.erase(std::remove(observers_.begin(), observers_.end(), nullptr), observers_.end());
}

} // namespace KVX
