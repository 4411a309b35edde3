#include "framework/plugin/PluginMetaClass.h"

#include "framework/plugin/ModuleResources.h"

#include <cstring>

namespace KVX {

tresult PluginMetaClass::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IPluginMetaClass)
    KVX_QUERY_INTERFACE(iid, object, IPluginInstance)
    return Unknown::queryInterface(iid, object);
}

const Url* PluginMetaClass::findResource(std::string_view key) const
{
    for (const ResourceEntry& entry : resources_)
        if (entry.key == key)
            return &entry.url;
    return nullptr;
}

tresult PluginMetaClass::getResourceLocation(const char* key, char* url, uint32 size)
{
    const Url* found = key ? findResource(key) : nullptr;
    if (!found || !url)
        return kInvalidArgument;
    const std::string text = found->toDisplayString().toUtf8();
    if (text.size() + 1 > size)
        return kInvalidArgument;
    std::memcpy(url, text.c_str(), text.size() + 1);
    return kResultOk;
}

tresult PluginMetaClass::getResourceData(const char* key, const void*& data, uint64& size)
{
    data = nullptr;
    size = 0;
    const Url* found = key ? findResource(key) : nullptr;
    if (!found)
        return kInvalidArgument;
    const ModuleResource* resource = ModuleResources::find(*found);
    if (!resource)
        return kUnexpected;
    data = resource->data;
    size = resource->size;
    return kResultOk;
}

} // namespace KVX
