#pragma once

#include "framework/core/Ref.h"
#include "framework/interfaces/IObserver.h"
#include "framework/interfaces/ISubject.h"

namespace KVX {

/// One observer watching one subject, for as long as the connection lives: a member of the
/// observer, so that the observer can never outlive its registration. The connection holds the
/// subject by a counted reference, so disconnecting never reaches a subject that is gone.
/// User-interface thread.
class ObserverConnection
{
public:
    ObserverConnection() = default;
    ObserverConnection(ISubject* subject, IObserver* observer) { connect(subject, observer); }
    ObserverConnection(const ObserverConnection&) = delete;
    ObserverConnection& operator=(const ObserverConnection&) = delete;
    ~ObserverConnection() { disconnect(); }

    /// Ends an earlier connection, then adds `observer` to `subject` (either may be null).
    void connect(ISubject* subject, IObserver* observer);
    void disconnect();
    bool isConnected() const { return subject_ != nullptr; }
    ISubject* subject() const { return subject_; }

private:
    Ref<ISubject> subject_;
    IObserver* observer_ = nullptr; // the observer owns this connection
};

} // namespace KVX
