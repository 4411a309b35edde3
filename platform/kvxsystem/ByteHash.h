#pragma once

#include "framework/core/Types.h"

namespace KVX::System {

/// The 32-bit FNV-1a hash of `length` bytes (not cryptographic). `data` may be null when
/// `length` is 0.
uint32 fnv1a32(const void* data, uint64 length);

} // namespace KVX::System
