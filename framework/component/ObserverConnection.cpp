#include "framework/component/ObserverConnection.h"

namespace KVX {

void ObserverConnection::connect(ISubject* subject, IObserver* observer)
{
    disconnect();
    if (!subject || !observer)
        return;
    subject_ = subject;
    observer_ = observer;
    subject_->addObserver(observer_);
}

void ObserverConnection::disconnect()
{
    if (Ref<ISubject> subject = std::move(subject_))
        subject->removeObserver(observer_);
    observer_ = nullptr;
}

} // namespace KVX
