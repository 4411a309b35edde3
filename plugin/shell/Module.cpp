#include "plugin/shell/Module.h"

#include "framework/plugin/ClassFactory.h"
#include "framework/plugin/ModuleComponent.h"
#include "plugin/catalogue/Publisher.h"
#include "plugin/controller/Manager.h"
#include "plugin/shell/GadgetMetaClass.h"
#include "plugin/shell/Texts.h"

namespace Sorvel {

using namespace KVX;

namespace {

Ref<ModuleComponent>& moduleComponent()
{
    static Ref<ModuleComponent> component;
    return component;
}

IUnknown* createPublisher()
{
    return static_cast<Engine::IPublisher*>(makeRef<Publisher>().detach());
}

IUnknown* createManager()
{
    return static_cast<IComponent*>(makeRef<Manager>().detach());
}

IUnknown* createMetaClass()
{
    return static_cast<IPluginMetaClass*>(makeRef<GadgetMetaClass>().detach());
}

/// The metaclass's record, built on first use and kept for the life of the module, so that the
/// gadget's "Class:MetaClassID" always names it.
const ClassRecord& metaClassRecord()
{
    static const ClassRecord record{Module::kMetaClassId, "MetaClass", "Sorvel Client", createMetaClass, nullptr};
    return record;
}

ClassFactory& filledFactory()
{
    // Released when the library is unloaded, as its code goes with it.
    static const Ref<ClassFactory> factory = [] {
        auto filled = makeRef<ClassFactory>();
        filled->setVersion({Module::kTitle, Module::kVersion, Module::kVendor,
                            "Copyright 2026 Belvane. All rights reserved.", "https://www.belvane.com/sorvel"});
        filled->registerClass({Module::kPublisherClassId, "Publisher", "Upload to Sorvel", createPublisher, nullptr});
        auto gadgetAttributes = makeRef<AttributeList>();
        gadgetAttributes->attributes().set("Class:MetaClassID", String(metaClassRecord().classId.toString()));
        filled->registerClass({Module::kGadgetClassId, "Gadget", "Sorvel Client", createManager, gadgetAttributes});
        filled->registerClass(metaClassRecord());
        return filled;
    }();
    return *factory;
}

} // namespace

bool Module::start(int value, std::span<const ModuleResource> resources)
{
    if (value != 1 || isStarted())
        return true;
    ModuleResources::install(kModuleId, resources);
    auto component = makeRef<ModuleComponent>(kModuleId, kVendor, kTitle);
    Texts::registerAll();
    if (!component->loadTheme(kThemeName, kThemeResource))
    {
        ModuleResources::uninstall();
        return false;
    }
    moduleComponent() = component;
    return true;
}

void Module::stop()
{
    moduleComponent().reset();
    ModuleResources::uninstall();
}

bool Module::isStarted()
{
    return moduleComponent().get() != nullptr;
}

ModuleComponent* Module::component()
{
    return moduleComponent().get();
}

IClassFactory* Module::classFactory()
{
    if (!isStarted())
        return nullptr;
    return &filledFactory();
}

} // namespace Sorvel
