#include "host/render/SampleQuantizer.h"

#include <cmath>

namespace Host {

SampleQuantizer::SampleQuantizer(int bitDepth, bool dither, std::uint64_t seed)
    : scale_(std::ldexp(1.0, bitDepth - 1)), highest_(scale_ - 1.0), lowest_(-scale_), shift_(32 - bitDepth),
      dither_(dither), state_(seed ? seed : 1)
{
}

double SampleQuantizer::nextUniform()
{
    // xorshift64*: plenty for dither noise, and cheap enough to call twice per sample.
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return static_cast<double>((state_ * 0x2545F4914F6CDD1Dull) >> 11) * 0x1.0p-53;
}

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
            value += nextUniform() - nextUniform();
        double step = std::nearbyint(value);
        if (step > highest_)
            step = highest_;
        else if (step < lowest_)
            step = lowest_;
        out[index] = static_cast<std::int32_t>(static_cast<std::int64_t>(step) * (std::int64_t{1} << shift_));
    }
}

} // namespace Host
