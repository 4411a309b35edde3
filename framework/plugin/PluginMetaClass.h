#pragma once

#include "framework/core/Unknown.h"
#include "framework/data/Url.h"
#include "framework/plugin/IPluginMetaClass.h"
#include "framework/plugin/PluginInstance.h"

#include <vector>

namespace KVX {

/// A metaclass with a list of resource entries (key plus resource URL).
class PluginMetaClass : public Unknown, public PluginInstance, public IPluginMetaClass
{
public:
    struct ResourceEntry
    {
        CString key;
        Url url;
    };

    void addResource(std::string_view key, const Url& url) { resources_.push_back({CString(key), url}); }
    const std::vector<ResourceEntry>& resources() const { return resources_; }
    const Url* findResource(std::string_view key) const;

    tresult getResourceLocation(const char* key, char* url, uint32 size) override;
    tresult getResourceData(const char* key, const void*& data, uint64& size) override;

    uint32 retain() override { return Unknown::retain(); }
    uint32 release() override { return Unknown::release(); }
    tresult queryInterface(const UID& iid, void** object) override;

private:
    std::vector<ResourceEntry> resources_;
};

} // namespace KVX
