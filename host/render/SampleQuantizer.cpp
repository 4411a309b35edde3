#include "host/render/SampleQuantizer.h"

#include <cmath>

namespace Host {

SampleQuantizer::SampleQuantizer(int bitDepth, bool dither, std::uint64_t seed)
    : scale_(std::ldexp(1.0, bitDepth - 1)), highest_(scale_ - 1.0), lowest_(-scale_), shift_(32 - bitDepth),
      dither_(dither), state_(seed ? seed : 1)
{
}

double SampleQuantizer::triangularNoise()
{
    // The two 32-bit halves of a hashed counter (splitmix64) are two independent uniform values;
    // their difference is triangular over +-1. Each sample's hash depends only on the counter, so
    // the samples' hashes overlap in the processor instead of waiting for one another.
    state_ += 0x9E3779B97F4A7C15ull;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ull;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBull;
    mixed ^= mixed >> 31;
    return (static_cast<double>(mixed >> 32) - static_cast<double>(mixed & 0xFFFFFFFFu)) * 0x1.0p-32;
}

namespace {

/// Rounds to the nearest integer, ties to even, as std::nearbyint does in the default rounding
/// mode, without its library call: adding and taking away 1.5 * 2^52 leaves no bits below the
/// units. Exact for magnitudes below 2^51, far beyond any sample here (at most 2^31 and a step).
double nearestInteger(double value)
{
    constexpr double kShift = 0x1.8p52;
    return (value + kShift) - kShift;
}

} // namespace

void SampleQuantizer::quantize(const double* in, std::int32_t* out, std::size_t count)
{
    for (std::size_t index = 0; index < count; ++index)
    {
        double value = in[index] * scale_;
        if (std::isnan(value))
            value = 0.0;
        if (value > scale_ + 0.5 || value < lowest_ - 0.5)
            ++clipped_;
        if (dither_)
            value += triangularNoise();
        double step = nearestInteger(value);
        if (step > highest_)
            step = highest_;
        else if (step < lowest_)
            step = lowest_;
        out[index] = static_cast<std::int32_t>(static_cast<std::int64_t>(step) * (std::int64_t{1} << shift_));
    }
}

} // namespace Host
