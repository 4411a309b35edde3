#pragma once

#include "framework/core/UID.h"
#include "framework/plugin/IClassFactory.h"
#include "framework/plugin/ModuleResources.h"

#include <span>

namespace KVX {
class ModuleComponent;
}

namespace Sorvel {

/// The plug-in module: its start and stop, its component "Module", and the class factory through
/// which the host finds its three classes. The library's load and unload notifications drive it
/// (see ModuleEntry.cpp); tests drive it directly.
///
/// Threads: start, stop and classFactory run on the thread that loads the library or that the
/// host calls the entry point on, never at the same time.
class Module
{
public:
    static constexpr const char* kModuleId = "sorvel";
    static constexpr const char* kVendor = "Belvane";
    static constexpr const char* kTitle = "Sorvel Support";
    static constexpr const char* kVersion = "1.0.14.27792";
    static constexpr const char* kThemeName = "sorvel";
    static constexpr const char* kThemeResource = "DEFAULT.SKIN";

    static constexpr KVX::UID kPublisherClassId = KVX::UID::fromString("{2977D775-B628-4F03-B87B-9BB7CE3AE3FD}");
    static constexpr KVX::UID kGadgetClassId = KVX::UID::fromString("{F9CA1948-BC26-4A23-8553-3BD5EF2EBF91}");
    static constexpr KVX::UID kMetaClassId = KVX::UID::fromString("{3A5F6385-0E34-4907-9DD1-EDB0C4326753}");

    /// The start routine. Only the value 1 (the library was loaded) starts the module; any other
    /// value succeeds and does nothing. Starting installs `resources` as the module's own,
    /// creates the component "Module", registers the texts and loads the theme from the
    /// resource DEFAULT.SKIN; when the theme does not load, the module stays stopped and start
    /// returns false. Starting a started module does nothing and succeeds.
    static bool start(int value, std::span<const KVX::ModuleResource> resources);
    /// Releases the component "Module" and forgets the resources. The class factory stays
    /// filled: the host may still hold it while it unloads.
    static void stop();
    static bool isStarted();

    /// The component "Module", or null while the module is stopped.
    static KVX::ModuleComponent* component();

    /// The class factory, filled on the first call: the version record, then "Upload to Sorvel"
    /// (Publisher), "Sorvel Client" (Gadget, with "Class:MetaClassID") and "Sorvel Client"
    /// (MetaClass). Null while the module is stopped, so that a host unloads a module whose
    /// start failed. No reference is handed out: the factory lives as long as the library.
    static KVX::IClassFactory* classFactory();
};

} // namespace Sorvel
