#pragma once

#include "framework/core/ClassRegistry.h"

namespace KVX {

/// Registers a class when the module's static objects are constructed (see KVX_DEFINE_CLASS).
struct ClassRegistration
{
    explicit ClassRegistration(const ClassInfo& info) { ClassRegistry::instance().add(info); }
};

} // namespace KVX
