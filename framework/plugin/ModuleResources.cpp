#include "framework/plugin/ModuleResources.h"

#include <string>

namespace KVX {

namespace {

struct Installed
{
    std::string moduleId;
    std::span<const ModuleResource> table;
};

Installed& installed()
{
    static Installed record;
    return record;
}

} // namespace

void ModuleResources::install(std::string_view moduleId, std::span<const ModuleResource> table)
{
    installed() = {std::string(moduleId), table};
}

void ModuleResources::uninstall()
{
    installed() = {};
}

const ModuleResource* ModuleResources::find(std::string_view name)
{
    for (const ModuleResource& resource : installed().table)
        if (resource.name == name)
            return &resource;
    return nullptr;
}

const ModuleResource* ModuleResources::find(const Url& url)
{
    const Installed& record = installed();
    if (url.protocol() != kProtocol || record.moduleId.empty() || url.host() != record.moduleId)
        return nullptr;
    std::string path = url.path().toUtf8();
    if (!path.empty() && path.front() == '/')
        path.erase(0, 1);
    return find(path);
}

Url ModuleResources::urlOf(std::string_view name)
{
    Url url;
    url.setProtocol(kProtocol);
    url.setHost(installed().moduleId);
    url.setPath(String(name));
    return url;
}

} // namespace KVX
