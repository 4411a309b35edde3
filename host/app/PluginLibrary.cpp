#include "host/app/PluginLibrary.h"

#include "framework/plugin/IPluginInstance.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace Host {

using namespace KVX;

namespace {

/// The folder this program is in, found from the running executable.
std::filesystem::path programFolder()
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : program.parent_path();
}

} // namespace

std::vector<std::string> PluginLibrary::searchFolders()
{
    std::vector<std::string> folders;
    if (const char* list = std::getenv("SORVEL_PLUGIN_PATH"); list && *list)
    {
        std::string_view rest(list);
        while (!rest.empty())
        {
            const size_t colon = rest.find(':');
            if (const std::string_view folder = rest.substr(0, colon); !folder.empty())
                folders.emplace_back(folder);
            rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        }
    }
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/')
        folders.push_back(std::string(data) + "/sorvel/plugins");
    else if (const char* home = std::getenv("HOME"); home && *home)
        folders.push_back(std::string(home) + "/.local/share/sorvel/plugins");
    // <prefix>/bin/sorvel finds <prefix>/lib/sorvel/plugins.
    if (const std::filesystem::path here = programFolder(); !here.empty())
        folders.push_back((here.parent_path() / "lib" / "sorvel" / "plugins").string());
    return folders;
}

std::string PluginLibrary::defaultPath()
{
    if (const char* path = std::getenv("SORVEL_PLUGIN"); path && *path)
        return path;
    std::vector<std::filesystem::path> candidates;
    for (const std::string& folder : searchFolders())
        candidates.push_back(std::filesystem::path(folder) / "sorvel.so");
    // In the build folder the plug-in is built beside the modules: <build>/bin/sorvel, <build>/lib/sorvel.so.
    if (const std::filesystem::path here = programFolder(); !here.empty())
        candidates.push_back(here.parent_path() / "lib" / "sorvel.so");
    for (const std::filesystem::path& candidate : candidates)
        if (std::error_code error; std::filesystem::is_regular_file(candidate, error))
            return candidate.string();
    return {};
}

bool PluginLibrary::load(const std::string& path, std::string& error)
{
    unload();
    handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_)
    {
        const char* reason = ::dlerror();
        error = "cannot load the plug-in " + path + ": " + (reason ? reason : "unknown reason");
        return false;
    }
    using Entry = IClassFactory* (*)();
    auto entry = reinterpret_cast<Entry>(::dlsym(handle_, "KVXGetClassFactory"));
    IClassFactory* factory = entry ? entry() : nullptr;
    if (!factory)
    {
        error = entry ? "the plug-in " + path + " refused to start (its theme or framework could not be set up)"
                      : "the library " + path + " is not a plug-in (it has no class factory)";
        ::dlclose(handle_);
        handle_ = nullptr;
        return false;
    }
    factory_ = factory; // shares the module's factory
    return true;
}

void PluginLibrary::unload()
{
    factory_.reset();
    if (handle_)
        ::dlclose(handle_);
    handle_ = nullptr;
}

bool PluginLibrary::findClass(const char* category, UID& classId) const
{
    if (!factory_)
        return false;
    for (int32 i = 0; i < factory_->countClasses(); ++i)
    {
        ClassDescription description{};
        if (factory_->getClassDescription(i, description) == kResultOk &&
            std::strncmp(description.category, category, sizeof(description.category)) == 0)
        {
            classId = description.classId;
            return true;
        }
    }
    return false;
}

IUnknown* PluginLibrary::create(const char* category, const UID& iid) const
{
    UID classId;
    if (!findClass(category, classId))
        return nullptr;
    void* object = nullptr;
    if (factory_->createInstance(classId, iid, &object) != kResultOk || !object)
        return nullptr;
    auto* unknown = static_cast<IUnknown*>(object);
    void* instance = nullptr;
    if (unknown->queryInterface(IPluginInstance::kIID, &instance) == kResultOk && instance)
    {
        auto* plugin = static_cast<IPluginInstance*>(instance);
        plugin->setClassId(classId);
        plugin->release();
    }
    return unknown;
}

} // namespace Host
