#pragma once

#include "framework/core/Types.h"
#include "framework/data/Url.h"

#include <span>
#include <string_view>

namespace KVX {

/// One file that a module carries inside its own library: the name it is known by and its bytes,
/// which stay valid as long as the library is loaded.
struct ModuleResource
{
    std::string_view name;
    const void* data;
    uint64 size;
};

/// The resources of this module. The framework is linked into every module on its own, so each
/// module has its own table: the module installs it once when it starts, before anything asks.
/// A resource is addressed by the URL "resource://<module identifier>/<name>".
class ModuleResources
{
public:
    static constexpr std::string_view kProtocol = "resource";

    /// Records `moduleId` and the table (which must outlive the module's use of it).
    static void install(std::string_view moduleId, std::span<const ModuleResource> table);
    /// Forgets the table (the module is stopping).
    static void uninstall();

    /// The resource `name`, or null when the module carries none of that name.
    static const ModuleResource* find(std::string_view name);
    /// The resource that `url` addresses, or null when it addresses none of this module's.
    static const ModuleResource* find(const Url& url);
    /// The URL of the resource `name` of this module.
    static Url urlOf(std::string_view name);
};

} // namespace KVX
