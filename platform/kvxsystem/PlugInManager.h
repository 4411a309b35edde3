#pragma once

#include "framework/core/Object.h"
#include "framework/services/IPlugInManager.h"

#include <mutex>
#include <string>
#include <vector>

namespace KVX::System {

/// IPlugInManager as a list of class records under one mutex. Hosts register a handful of
/// classes, so a list searched in order is all it needs.
class PlugInManager : public Object, public IPlugInManager
{
    KVX_DECLARE_CLASS(PlugInManager, Object)
public:
    tresult registerClass(const UID& classId, CreateFunction create, const char* name) override;
    tresult unregisterClass(const UID& classId) override;
    tresult createInstance(const UID& classId, const UID& iid, void** object) override;
    tresult findClass(const char* name, UID& classId) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    struct ClassEntry
    {
        UID classId;
        CreateFunction create;
        std::string name;
    };

    std::mutex mutex_;
    std::vector<ClassEntry> classes_;
};

} // namespace KVX::System
