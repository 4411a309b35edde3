#include "platform/kvxsystem/ObjectTable.h"

namespace KVX::System {

KVX_DEFINE_CLASS(ObjectTable, Object, "ObjectTable")

tresult ObjectTable::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IObjectTable)
    return Object::queryInterface(iid, object);
}

tresult ObjectTable::registerObject(const char* name, IUnknown* object)
{
    if (!name || !*name || !object)
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    return objects_.try_emplace(name, object).second ? kResultOk : kInvalidArgument;
}

tresult ObjectTable::unregisterObject(const char* name)
{
    if (!name)
        return kInvalidArgument;
    Ref<IUnknown> removed; // released after the lock, in case its destructor calls the table
    {
        std::lock_guard lock(mutex_);
        auto found = objects_.find(std::string_view(name));
        if (found == objects_.end())
            return kInvalidArgument;
        removed = std::move(found->second);
        objects_.erase(found);
    }
    return kResultOk;
}

tresult ObjectTable::findObject(const char* name, IUnknown** object)
{
    if (!object)
        return kInvalidArgument;
    *object = nullptr;
    if (!name)
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    auto found = objects_.find(std::string_view(name));
    if (found == objects_.end())
        return kInvalidArgument;
    Ref<IUnknown> shared = found->second;
    *object = shared.detach();
    return kResultOk;
}

} // namespace KVX::System
