#include "framework/core/Object.h"

namespace KVX {

const ClassInfo& Object::classInfo()
{
    static const ClassInfo info{"Object", nullptr};
    return info;
}
static const ClassRegistration registrationObject(Object::classInfo());

tresult Object::queryInterface(const UID& iid, void** object)
{
    if (iid == kIID)
    {
        *object = static_cast<Object*>(this);
        retain();
        return kResultOk;
    }
    return Unknown::queryInterface(iid, object);
}

} // namespace KVX
