#pragma once

#include <cstdint>

namespace KVX {

using int8 = std::int8_t;
using uint8 = std::uint8_t;
using int32 = std::int32_t;
using uint32 = std::uint32_t;
using int64 = std::int64_t;
using uint64 = std::uint64_t;

/// Result of an operation that faces the host. The values are the platform's: success, invalid
/// argument and unexpected failure. The plug-in's own operations return bool instead.
using tresult = int32;

constexpr tresult kResultOk = 0;
constexpr tresult kInvalidArgument = static_cast<tresult>(0x80070057u);
constexpr tresult kUnexpected = static_cast<tresult>(0x8000FFFFu);

} // namespace KVX
