#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IObjectTable.h"

#include <map>
#include <mutex>
#include <string>

namespace KVX::System {

/// IObjectTable as a map from name to a held reference, under one mutex.
class ObjectTable : public Object, public IObjectTable
{
    KVX_DECLARE_CLASS(ObjectTable, Object)
public:
    tresult registerObject(const char* name, IUnknown* object) override;
    tresult unregisterObject(const char* name) override;
    tresult findObject(const char* name, IUnknown** object) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::mutex mutex_;
    std::map<std::string, Ref<IUnknown>, std::less<>> objects_;
};

} // namespace KVX::System
