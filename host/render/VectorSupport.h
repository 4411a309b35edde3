#pragma once

namespace Host {

// What the processor offers the meters' vector code, read when asked: the meters choose their
// code while static objects start up, possibly before the runtime library has read the
// processor's features itself, hence the explicit read first.

/// AVX2 with fused multiply-add.
inline bool hasAvx2()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

/// AVX-512 (its foundation).
inline bool hasAvx512()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f");
}

} // namespace Host
