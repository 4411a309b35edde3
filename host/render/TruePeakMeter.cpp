#include "host/render/TruePeakMeter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace Host {

namespace {

constexpr int kTaps = TruePeakMeter::kTaps;
constexpr int kBefore = kTaps / 2 - 1; // frames before the sample a point follows that its taps read
constexpr float kSampleScale = 1.0f / 2147483648.0f;

/// The taps of the three points between x[n] and x[n+1], at a quarter, half and three quarters;
/// tap t multiplies x[n - kBefore + t].
using Taps = std::array<std::array<float, kTaps>, 3>;

Taps designTaps()
{
    // A sinc that passes everything below the input's half sample rate, under a Kaiser window
    // (beta 6: its ripple is far below what a peak meter shows, its edge close to that rate).
    constexpr int kHalf = 2 * kTaps - 1; // 23: the filter spans -23..23 at four times the rate
    constexpr double kBeta = 6.0;
    auto response = [&](int at) {
        const double x = at / 4.0;
        const double sinc = at == 0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
        const double edge = static_cast<double>(at) / (kHalf + 1);
        return sinc * std::cyl_bessel_i(0.0, kBeta * std::sqrt(1.0 - edge * edge)) / std::cyl_bessel_i(0.0, kBeta);
    };
    Taps taps{};
    for (int point = 1; point <= 3; ++point)
    {
        double sum = 0;
        for (int t = 0; t < kTaps; ++t)
            sum += response(4 * (kBefore - t) + point);
        // Each point passes a constant signal unchanged.
        for (int t = 0; t < kTaps; ++t)
            taps[point - 1][t] = static_cast<float>(response(4 * (kBefore - t) + point) / sum);
    }
    return taps;
}

const Taps kTapsOfPoints = designTaps();

/// The largest magnitude among the samples line[kBefore..] and the points after them, for
/// `count` samples; the line holds kTaps - 1 more frames than that. Works on vectors of `Bytes`.
template <int Bytes> struct FloatsOf
{
    typedef float Type __attribute__((vector_size(Bytes)));
};

template <int Bytes> [[gnu::always_inline]] inline float largestOf(const float* line, std::size_t count)
{
    using Floats = typename FloatsOf<Bytes>::Type;
    constexpr std::size_t kLanes = Bytes / sizeof(float);
    const Taps& taps = kTapsOfPoints;
    Floats most = {};
    std::size_t at = 0;
    for (; at + kLanes <= count; at += kLanes)
    {
        Floats quarter = {}, half = {}, threeQuarters = {};
        for (int t = 0; t < kTaps; ++t)
        {
            Floats x;
            std::memcpy(&x, line + at + t, sizeof x);
            quarter += x * taps[0][t];
            half += x * taps[1][t];
            threeQuarters += x * taps[2][t];
        }
        Floats sample;
        std::memcpy(&sample, line + at + kBefore, sizeof sample);
        for (Floats value : {sample, quarter, half, threeQuarters})
        {
            value = value < 0 ? -value : value;
            most = most > value ? most : value;
        }
    }
    float largest = 0;
    for (std::size_t lane = 0; lane < kLanes; ++lane)
        largest = std::max(largest, most[lane]);
    for (; at < count; ++at)
    {
        largest = std::max(largest, std::abs(line[at + kBefore]));
        for (const auto& point : taps)
        {
            float value = 0;
            for (int t = 0; t < kTaps; ++t)
                value += line[at + t] * point[t];
            largest = std::max(largest, std::abs(value));
        }
    }
    return largest;
}

[[gnu::target("avx512f")]] float largestWithAvx512(const float* line, std::size_t count)
{
    return largestOf<64>(line, count);
}

[[gnu::target("avx2,fma")]] float largestWithAvx2(const float* line, std::size_t count)
{
    return largestOf<32>(line, count);
}

float largestPlain(const float* line, std::size_t count)
{
    return largestOf<16>(line, count);
}

using Largest = float (*)(const float*, std::size_t);
const Largest kLargest = [] {
    __builtin_cpu_init(); // this may run before the runtime library's own start-up code has
    if (__builtin_cpu_supports("avx512f"))
        return largestWithAvx512;
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") ? largestWithAvx2 : largestPlain;
}();

} // namespace

TruePeakMeter::TruePeakMeter(int channels) : channels_(channels)
{
    // Silence before the first frame.
    for (int channel = 0; channel < channels_; ++channel)
        lines_[channel].assign(kept_, 0.0f);
}

void TruePeakMeter::add(const std::int32_t* samples, std::size_t count)
{
    if (count == 0)
        return;
    const auto width = static_cast<std::size_t>(channels_);
    for (std::size_t channel = 0; channel < width; ++channel)
    {
        std::vector<float>& line = lines_[channel];
        line.resize(kept_ + count);
        for (std::size_t frame = 0; frame < count; ++frame)
            line[kept_ + frame] = static_cast<float>(samples[frame * width + channel]) * kSampleScale;
    }
    measure(count);
}

void TruePeakMeter::measure(std::size_t frames)
{
    for (int channel = 0; channel < channels_; ++channel)
    {
        std::vector<float>& line = lines_[channel];
        peak_ = std::max(peak_, kLargest(line.data(), frames));
        // The last frames are read again, before the next block.
        std::copy(line.end() - static_cast<std::ptrdiff_t>(kept_), line.end(), line.begin());
        line.resize(kept_);
    }
}

double TruePeakMeter::finish()
{
    // Silence after the last frame lets the filter ring out past it.
    for (int channel = 0; channel < channels_; ++channel)
        lines_[channel].resize(2 * kept_, 0.0f);
    measure(kept_);
    return peak_;
}

} // namespace Host
