#include "framework/core/Runnable.h"



namespace KVX {

KVX_DEFINE_CLASS(Runnable, Object, "Runnable")

tresult Runnable::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IRunnable)
    return Object::queryInterface(iid, object);
}

} // namespace KVX
