#include "plugin/shell/GadgetMetaClass.h"

#include "framework/plugin/ModuleResources.h"

namespace Sorvel {

GadgetMetaClass::GadgetMetaClass()
{
    addResource(kGadgetResourceKey, KVX::ModuleResources::urlOf(kGadgetResource));
}

} // namespace Sorvel
