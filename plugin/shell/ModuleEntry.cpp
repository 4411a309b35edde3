// The library's entry points: what runs when a host loads and unloads it, and the single
// exported function through which the host finds the classes.
//
// A library cannot refuse to be loaded from its initialiser on this system. When the start fails
// (the theme does not load), the module stays stopped and KVXGetClassFactory answers null; a
// host takes that as a refusal and unloads the library.
#include "framework/services/ModuleApi.h"
#include "plugin/shell/Module.h"

#include <array>

extern "C" {
// Labels around the embedded resources (EmbeddedResources.S).
extern const unsigned char sorvel_gadget_xml_begin[];
extern const unsigned char sorvel_gadget_xml_end[];
extern const unsigned char sorvel_default_skin_begin[];
extern const unsigned char sorvel_default_skin_end[];
}

namespace {

KVX::ModuleResource embedded(std::string_view name, const unsigned char* begin, const unsigned char* end)
{
    return {name, begin, static_cast<KVX::uint64>(end - begin)};
}

const std::array<KVX::ModuleResource, 2>& resources()
{
    static const std::array<KVX::ModuleResource, 2> table{
        embedded("gadget.xml", sorvel_gadget_xml_begin, sorvel_gadget_xml_end),
        embedded(Sorvel::Module::kThemeResource, sorvel_default_skin_begin, sorvel_default_skin_end),
    };
    return table;
}

bool attached = false;

__attribute__((constructor)) void attachModule()
{
    attached = Sorvel::Module::start(1, resources());
}

__attribute__((destructor)) void detachModule()
{
    if (attached)
        Sorvel::Module::stop();
    attached = false;
}

} // namespace

extern "C" KVX_MODULE_API KVX::IClassFactory* KVXGetClassFactory()
{
    return attached ? Sorvel::Module::classFactory() : nullptr;
}
