#pragma once

#include <cstddef>
#include <cstdint>

namespace Host {

/// Turns samples at full scale +-1.0 into integers of a given bit depth, left-justified in 32
/// bits (the layout libsndfile's integer writer takes for every bit depth).
///
/// Rounding is to the nearest step. With dither on, triangular noise of +-1 step (the difference
/// of two independent uniform values) is added before rounding, which turns the rounding error
/// into a steady noise floor instead of distortion that follows the signal. Samples beyond full
/// scale are clamped to it. Those that lie more than half a step beyond +-1.0 are counted as
/// clipped; +1.0 itself, one step above the largest integer, is taken as full scale without
/// counting, and neither is a sample that only the dither pushed over.
class SampleQuantizer
{
public:
    /// `bitDepth` is 16, 24 or 32. `seed` fixes the dither sequence, so runs are repeatable.
    SampleQuantizer(int bitDepth, bool dither, std::uint64_t seed = 0x9E3779B97F4A7C15ull);

    void quantize(const double* in, std::int32_t* out, std::size_t count);

    std::int64_t clippedSamples() const { return clipped_; }
    bool dithers() const { return dither_; }

private:
    double triangularNoise();

    double scale_;
    double highest_;
    double lowest_;
    int shift_;
    bool dither_;
    std::uint64_t state_;
    std::int64_t clipped_ = 0;
};

} // namespace Host
