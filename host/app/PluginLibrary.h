#pragma once

#include "framework/core/Ref.h"
#include "framework/plugin/IClassFactory.h"

#include <string>
#include <vector>

namespace Host {

/// The plug-in, loaded as a workstation loads an extension: dlopen, then the one exported entry
/// point, which hands out the class factory. A module whose start failed returns no factory; the
/// host then treats it as refused and unloads it.
class PluginLibrary
{
public:
    PluginLibrary() = default;
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;
    ~PluginLibrary() { unload(); }

    /// The folders searched for the plug-in "sorvel.so", first match winning: each folder of
    /// $SORVEL_PLUGIN_PATH (separated by colons), $XDG_DATA_HOME/sorvel/plugins (or
    /// ~/.local/share/sorvel/plugins), and lib/sorvel/plugins under the prefix this program is
    /// installed in (found from the program's own place, so a moved installation still works).
    static std::vector<std::string> searchFolders();
    /// Where the plug-in is: the file $SORVEL_PLUGIN names, else the first "sorvel.so" in
    /// searchFolders(), else, run from the build folder, the library built there (../lib/sorvel.so);
    /// empty when there is none.
    static std::string defaultPath();

    /// Loads the library at `path` and takes its factory; false with a sentence in `error`.
    bool load(const std::string& path, std::string& error);
    /// Releases the factory and unloads the library. Objects made by it must be gone.
    void unload();

    KVX::IClassFactory* factory() const { return factory_; }
    /// The identifier of the first class of `category` ("Gadget", "Publisher", "MetaClass");
    /// false when the plug-in has none.
    bool findClass(const char* category, KVX::UID& classId) const;
    /// Creates an instance of the first class of `category`, asking it for `iid`; null on failure.
    /// The caller owns the returned reference.
    KVX::IUnknown* create(const char* category, const KVX::UID& iid) const;

private:
    void* handle_ = nullptr;
    KVX::Ref<KVX::IClassFactory> factory_;
};

} // namespace Host
