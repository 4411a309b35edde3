#pragma once

#include "framework/core/UID.h"

namespace KVX::System {

/// A random identifier of version 4, variant 1, from the kernel's random source. Returns false,
/// with `uid` untouched, when the source fails.
bool makeRandomUid(UID& uid);

} // namespace KVX::System
