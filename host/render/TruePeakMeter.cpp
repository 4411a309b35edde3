#include "host/render/TruePeakMeter.h"
#include "host/render/VectorSupport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

namespace Host {

namespace {

constexpr std::size_t kTaps = TruePeakMeter::kTaps;
constexpr std::size_t kBefore = kTaps / 2 - 1; // frames before the sample a point follows that its taps read
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
        for (std::size_t t = 0; t < kTaps; ++t)
            sum += response(4 * (static_cast<int>(kBefore) - static_cast<int>(t)) + point);
        // Each point passes a constant signal unchanged.
        for (std::size_t t = 0; t < kTaps; ++t)
            taps[static_cast<std::size_t>(point - 1)][t] =
                static_cast<float>(response(4 * (static_cast<int>(kBefore) - static_cast<int>(t)) + point) / sum);
    }
    return taps;
}

const Taps kTapsOfPoints = designTaps();

/// The same taps folded in half. The filter is symmetric, so the half-way point's taps read the
/// same from both ends, and the three-quarter point's are the quarter point's backwards: with
/// the sum and the difference of the two frames at each pair of mirrored taps, the three points
/// take half the multiplications (quarter = even + odd, three quarters = even - odd).
struct FoldedTaps
{
    static constexpr std::size_t kPairs = kTaps / 2;
    std::array<float, kPairs> even{}; // the quarter point's symmetric part, on the sums
    std::array<float, kPairs> odd{};  // its antisymmetric part, on the differences
    std::array<float, kPairs> half{}; // the half-way point, on the sums
};

FoldedTaps foldTaps(const Taps& taps)
{
    FoldedTaps folded;
    for (std::size_t t = 0; t < FoldedTaps::kPairs; ++t)
    {
        const std::size_t mirror = kTaps - 1 - t;
        folded.even[t] = (taps[0][t] + taps[0][mirror]) / 2;
        folded.odd[t] = (taps[0][t] - taps[0][mirror]) / 2;
        folded.half[t] = taps[1][t];
    }
    return folded;
}

const FoldedTaps kFoldedTaps = foldTaps(kTapsOfPoints);

template <int Bytes> struct FloatsOf
{
    typedef float Type __attribute__((vector_size(Bytes)));
};

/// The largest magnitude among `count` samples of interleaved frames of `Width` channels,
/// line[kBefore * Width..], and the points after them; the line holds kTaps - 1 more frames than
/// that. Each lane of a vector follows its own channel, since a tap reads the same frame offset
/// in every channel. Works on vectors of `Bytes`.
template <int Bytes, std::size_t Width>
[[gnu::always_inline]] inline float largestOf(const float* line, std::size_t count)
{
    using Floats = typename FloatsOf<Bytes>::Type;
    constexpr std::size_t kLanes = Bytes / sizeof(float);
    const Taps& taps = kTapsOfPoints;
    const FoldedTaps& folded = kFoldedTaps;
    Floats most = {};
    std::size_t at = 0;
    for (; at + kLanes <= count; at += kLanes)
    {
        Floats even = {}, odd = {}, half = {};
        for (std::size_t t = 0; t < FoldedTaps::kPairs; ++t)
        {
            Floats early, late;
            std::memcpy(&early, line + at + t * Width, sizeof early);
            std::memcpy(&late, line + at + (kTaps - 1 - t) * Width, sizeof late);
            const Floats sum = early + late;
            even += sum * folded.even[t];
            odd += (early - late) * folded.odd[t];
            half += sum * folded.half[t];
        }
        const Floats quarter = even + odd;
        const Floats threeQuarters = even - odd;
        Floats sample;
        std::memcpy(&sample, line + at + kBefore * Width, sizeof sample);
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
        largest = std::max(largest, std::abs(line[at + kBefore * Width]));
        for (const auto& point : taps)
        {
            float value = 0;
            for (std::size_t t = 0; t < kTaps; ++t)
                value += line[at + t * Width] * point[t];
            largest = std::max(largest, std::abs(value));
        }
    }
    return largest;
}

[[gnu::target("avx512f")]] float largestWithAvx512(const float* line, std::size_t count, std::size_t width)
{
    return width == 2 ? largestOf<64, 2>(line, count) : largestOf<64, 1>(line, count);
}

[[gnu::target("avx2,fma")]] float largestWithAvx2(const float* line, std::size_t count, std::size_t width)
{
    return width == 2 ? largestOf<32, 2>(line, count) : largestOf<32, 1>(line, count);
}

float largestPlain(const float* line, std::size_t count, std::size_t width)
{
    return width == 2 ? largestOf<16, 2>(line, count) : largestOf<16, 1>(line, count);
}

} // namespace

bool TruePeakMeter::supports(Vectors vectors)
{
    return vectors != Vectors::Avx2 || hasAvx2();
}

TruePeakMeter::TruePeakMeter(int channels, Vectors vectors)
    : channels_(channels),
      largest_(vectors == Vectors::Sse2   ? largestPlain
               : vectors == Vectors::Avx2 ? largestWithAvx2
               : hasAvx512()              ? largestWithAvx512
               : hasAvx2()                ? largestWithAvx2
                                          : largestPlain)
{
    line_.assign(kept_ * static_cast<std::size_t>(channels_), 0.0f); // silence before the first frame
}

void TruePeakMeter::add(const std::int32_t* samples, std::size_t count)
{
    if (count == 0)
        return;
    const std::size_t kept = line_.size();
    const std::size_t values = count * static_cast<std::size_t>(channels_);
    line_.resize(kept + values);
    float* to = line_.data() + kept;
    for (std::size_t i = 0; i < values; ++i)
        to[i] = static_cast<float>(samples[i]) * kSampleScale;
    measure(values);
}

void TruePeakMeter::measure(std::size_t values)
{
    const auto width = static_cast<std::size_t>(channels_);
    peak_ = std::max(peak_, largest_(line_.data(), values, width));
    // The last frames are read again, before the next block.
    const auto kept = static_cast<std::ptrdiff_t>(kept_ * width);
    std::copy(line_.end() - kept, line_.end(), line_.begin());
    line_.resize(static_cast<std::size_t>(kept));
}

double TruePeakMeter::finish()
{
    // Silence after the last frame lets the filter ring out past it.
    const std::size_t values = kept_ * static_cast<std::size_t>(channels_);
    line_.resize(2 * values, 0.0f);
    measure(values);
    return peak_;
}

} // namespace Host
