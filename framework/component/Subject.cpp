#include "framework/component/Subject.h"

#include "framework/component/Message.h"

namespace KVX {

void Subject::signal(IMessage& message)
{
    Ref<ISubject> keepAlive(this); // an observer may drop the last other reference
    observers_.notifyAll(this, message);
}

void Subject::signal(std::string_view id)
{
    if (!hasObservers())
        return;
    auto message = makeRef<Message>(id);
    signal(*message);
}

} // namespace KVX
