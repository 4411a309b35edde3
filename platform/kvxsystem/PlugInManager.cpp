#include "platform/kvxsystem/PlugInManager.h"

#include <algorithm>

namespace KVX::System {

KVX_DEFINE_CLASS(PlugInManager, Object, "PlugInManager")

tresult PlugInManager::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IPlugInManager)
    return Object::queryInterface(iid, object);
}

tresult PlugInManager::registerClass(const UID& classId, CreateFunction create, const char* name)
{
    if (classId.isNull() || !create || !name || !*name)
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    for (const auto& entry : classes_)
        if (entry.classId == classId || entry.name == name)
            return kInvalidArgument;
    classes_.push_back({classId, create, name});
    return kResultOk;
}

tresult PlugInManager::unregisterClass(const UID& classId)
{
    std::lock_guard lock(mutex_);
    auto found = std::find_if(classes_.begin(), classes_.end(),
                              [&](const ClassEntry& entry) { return entry.classId == classId; });
    if (found == classes_.end())
        return kInvalidArgument;
    classes_.erase(found);
    return kResultOk;
}

tresult PlugInManager::createInstance(const UID& classId, const UID& iid, void** object)
{
    if (!object)
        return kInvalidArgument;
    *object = nullptr;
    CreateFunction create = nullptr;
    {
        std::lock_guard lock(mutex_);
        for (const auto& entry : classes_)
            if (entry.classId == classId)
                create = entry.create;
    }
    if (!create)
        return kInvalidArgument;
    // Called unlocked: a constructor may itself create host classes.
    IUnknown* instance = create();
    if (!instance)
        return kUnexpected;
    const tresult result = instance->queryInterface(iid, object);
    instance->release();
    if (result != kResultOk)
    {
        *object = nullptr;
        return kInvalidArgument;
    }
    return kResultOk;
}

tresult PlugInManager::findClass(const char* name, UID& classId)
{
    if (!name)
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    for (const auto& entry : classes_)
        if (entry.name == name)
        {
            classId = entry.classId;
            return kResultOk;
        }
    return kInvalidArgument;
}

} // namespace KVX::System
