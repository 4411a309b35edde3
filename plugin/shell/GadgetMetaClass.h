#pragma once

#include "framework/plugin/PluginMetaClass.h"

namespace Sorvel {

/// What the host reads about the gadget before it opens one: the resource "gadget.xml" under
/// "Class:GadgetResource" (the theme, the forms and the icons the host shows).
class GadgetMetaClass : public KVX::PluginMetaClass
{
public:
    static constexpr const char* kGadgetResourceKey = "Class:GadgetResource";
    static constexpr const char* kGadgetResource = "gadget.xml";

    GadgetMetaClass();
};

} // namespace Sorvel
