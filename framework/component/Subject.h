#pragma once

#include "framework/component/ObserverList.h"
#include "framework/interfaces/ISubject.h"

#include <string_view>

namespace KVX {

/// The subject role, shared by every class that others observe (components, parameters, request
/// objects): an observer list that stays correct while it is being notified, and a signal that
/// keeps the subject alive until every observer has been told. The deriving class supplies the
/// reference counting.
class Subject : public ISubject
{
public:
    void addObserver(IObserver* observer) override { observers_.add(observer); }
    void removeObserver(IObserver* observer) override { observers_.remove(observer); }
    void signal(IMessage& message) override;
    /// Signals a message with this name and no arguments; skipped when nobody observes.
    void signal(std::string_view id);

    bool hasObservers() const { return observers_.count() > 0; }
    bool isObservedBy(IObserver* observer) const { return observers_.contains(observer); }

protected:
    ~Subject() = default;

private:
    ObserverList observers_;
};

} // namespace KVX
