#include "host/render/LoudnessMeter.h"
#include "host/render/VectorSupport.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace Host {

namespace {

constexpr double kAbsoluteGate = -70.0; // LUFS
constexpr double kBinWidth = 0.01;      // LU
constexpr double kHighest = 10.0;       // LUFS; louder blocks count in the top bin
constexpr double kSampleScale = 1.0 / 2147483648.0;

double levelOf(double energy)
{
    return energy > 0 ? -0.691 + 10.0 * std::log10(energy) : -std::numeric_limits<double>::infinity();
}

double energyOf(double level)
{
    return std::pow(10.0, (level + 0.691) / 10.0);
}

/// Numbers too small to matter in the filter's state are taken as zero while it runs: a filter
/// that rings down into silence would otherwise crawl through subnormal arithmetic.
class FlushTinyNumbers
{
public:
#if defined(__SSE2__)
    FlushTinyNumbers() : saved_(_mm_getcsr()) { _mm_setcsr(saved_ | 0x8040); } // FTZ and DAZ
    ~FlushTinyNumbers() { _mm_setcsr(saved_); }

private:
    unsigned saved_;
#endif
};

/// Per channel and section: the section's state value now and one frame earlier, and its input
/// one frame earlier (shelf, then high pass).
using State = std::array<std::array<double, 6>, 2>;

/// Runs `count` frames through the filter and returns the sum of the squares of its output over
/// every channel. Both channels go through together, as the two halves of one vector (a single
/// channel beside silence).
template <int Channels>
[[gnu::always_inline]] inline double weigh(const LoudnessMeter::Section& shelf, const LoudnessMeter::Section& pass,
                                           State& kept, const std::int32_t* samples, std::size_t count)
{
    using Pair = double __attribute__((vector_size(16)));
    auto pairOf = [&kept](int at) { return Pair{kept[0][at], kept[1][at]}; };
    Pair shelfNow = pairOf(0), shelfBefore = pairOf(1), input = pairOf(2);
    Pair passNow = pairOf(3), passBefore = pairOf(4), shelvedBefore = pairOf(5);
    Pair sum = {};
    for (std::size_t frame = 0; frame < count; ++frame, samples += Channels)
    {
        // A section's state value s follows s[n+1] = b1 u[n] + b2 u[n-1] - a2 s[n-1] - a1 s[n]:
        // everything but the last product is ready before s[n] is, so each frame waits for one
        // multiply-add per section, and the two sections and channels run side by side.
        const Pair x = {static_cast<double>(samples[0]), Channels == 2 ? static_cast<double>(samples[Channels - 1]) : 0.0};
        const Pair shelved = shelf.b0 * x + shelfNow;
        const Pair shelfNext = ((shelf.b1 * x + shelf.b2 * input) - shelf.a2 * shelfBefore) - shelf.a1 * shelfNow;
        shelfBefore = shelfNow;
        shelfNow = shelfNext;
        input = x;
        const Pair weighted = shelved + passNow;
        const Pair passNext = ((pass.b1 * shelved + pass.b2 * shelvedBefore) - pass.a2 * passBefore) - pass.a1 * passNow;
        passBefore = passNow;
        passNow = passNext;
        shelvedBefore = shelved;
        sum += weighted * weighted;
    }
    for (int c = 0; c < 2; ++c)
        kept[c] = {shelfNow[c], shelfBefore[c], input[c], passNow[c], passBefore[c], shelvedBefore[c]};
    return sum[0] + sum[1];
}

using Weigh = double (*)(const LoudnessMeter::Section&, const LoudnessMeter::Section&, State&, const std::int32_t*,
                         std::size_t);

// With fused multiply-add, where the processor has it, the wait is one instruction.
template <int Channels>
[[gnu::target("avx2,fma")]] double weighWithFma(const LoudnessMeter::Section& shelf, const LoudnessMeter::Section& pass,
                                                State& kept, const std::int32_t* samples, std::size_t count)
{
    return weigh<Channels>(shelf, pass, kept, samples, count);
}

template <int Channels>
double weighPlain(const LoudnessMeter::Section& shelf, const LoudnessMeter::Section& pass, State& kept,
                  const std::int32_t* samples, std::size_t count)
{
    return weigh<Channels>(shelf, pass, kept, samples, count);
}

const Weigh kWeighMono = hasAvx2() ? weighWithFma<1> : weighPlain<1>;
const Weigh kWeighStereo = hasAvx2() ? weighWithFma<2> : weighPlain<2>;

} // namespace

LoudnessMeter::LoudnessMeter(int channels, double sampleRate)
    : channels_(channels), framesPer100ms_(static_cast<std::size_t>(std::lround(sampleRate / 10.0)))
{
    // The K-weighting filter at this rate, from its two analogue prototypes: a shelf of +4 dB
    // above about 1.7 kHz (the head's acoustics) and a high pass at about 38 Hz.
    {
        const double f0 = 1681.974450955533, gain = 3.999843853973347, q = 0.7071752369554196;
        const double k = std::tan(std::numbers::pi * f0 / sampleRate);
        const double vh = std::pow(10.0, gain / 20.0);
        const double vb = std::pow(vh, 0.4996667741545416);
        const double a0 = 1.0 + k / q + k * k;
        const double b0 = (vh + vb * k / q + k * k) / a0;
        const double b1 = 2.0 * (k * k - vh) / a0;
        const double b2 = (vh - vb * k / q + k * k) / a0;
        const double a1 = 2.0 * (k * k - 1.0) / a0;
        const double a2 = (1.0 - k / q + k * k) / a0;
        // The direct form's y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2] as
        // output b0 x[n] + s[n] (see Section, whose b1 and b2 are then b1 - a1 b0 and b2 - a2 b0),
        // with the samples' scale to full scale 1.0 folded into the input's coefficients.
        shelf_ = {b0 * kSampleScale, (b1 - a1 * b0) * kSampleScale, (b2 - a2 * b0) * kSampleScale, a1, a2};
    }
    {
        const double f0 = 38.13547087602444, q = 0.5003270373238773;
        const double k = std::tan(std::numbers::pi * f0 / sampleRate);
        const double a0 = 1.0 + k / q + k * k;
        const double a1 = 2.0 * (k * k - 1.0) / a0;
        const double a2 = (1.0 - k / q + k * k) / a0;
        highPass_ = {1.0, -2.0 - a1, 1.0 - a2, a1, a2}; // numerator 1, -2, 1
    }
}

void LoudnessMeter::add(const std::int32_t* samples, std::size_t count)
{
    const FlushTinyNumbers flush;
    while (count > 0)
    {
        const std::size_t take = std::min(count, framesPer100ms_ - framesInSubBlock_);
        energy_ += (channels_ == 2 ? kWeighStereo : kWeighMono)(shelf_, highPass_, state_, samples, take);
        samples += take * static_cast<std::size_t>(channels_);
        count -= take;
        framesInSubBlock_ += take;
        if (framesInSubBlock_ == framesPer100ms_)
            endSubBlock();
    }
}

void LoudnessMeter::endSubBlock()
{
    subBlocks_[static_cast<std::size_t>(finished_ % 30)] = energy_;
    ++finished_;
    energy_ = 0;
    framesInSubBlock_ = 0;
    const auto frames = static_cast<double>(framesPer100ms_);
    auto lastSubBlocks = [&](std::int64_t n) {
        double total = 0;
        for (std::int64_t i = finished_ - n; i < finished_; ++i)
            total += subBlocks_[static_cast<std::size_t>(i % 30)];
        return total / (static_cast<double>(n) * frames);
    };
    if (finished_ >= 4)
        momentary_.add(lastSubBlocks(4));
    if (finished_ >= 30 && finished_ % 10 == 0)
        shortTerm_.add(lastSubBlocks(30));
}

double LoudnessMeter::integratedLoudness() const
{
    std::int64_t count = 0;
    const double aboveSilence = momentary_.meanAbove(kAbsoluteGate, count);
    if (count == 0)
        return -std::numeric_limits<double>::infinity();
    return levelOf(momentary_.meanAbove(levelOf(aboveSilence) - 10.0, count));
}

double LoudnessMeter::loudnessRange() const
{
    std::int64_t count = 0;
    const double aboveSilence = shortTerm_.meanAbove(kAbsoluteGate, count);
    if (count == 0)
        return 0;
    const double gate = levelOf(aboveSilence) - 20.0;
    return shortTerm_.levelAt(gate, 0.95) - shortTerm_.levelAt(gate, 0.10);
}

LoudnessMeter::Histogram::Histogram()
    : counts_(static_cast<std::size_t>(std::lround((kHighest - kAbsoluteGate) / kBinWidth))),
      energies_(counts_.size())
{
}

std::size_t LoudnessMeter::Histogram::binOf(double level) const
{
    const double bin = std::floor((level - kAbsoluteGate) / kBinWidth);
    return static_cast<std::size_t>(std::clamp(bin, 0.0, static_cast<double>(counts_.size() - 1)));
}

void LoudnessMeter::Histogram::add(double energy)
{
    if (!(energy >= energyOf(kAbsoluteGate)))
        return; // below the absolute gate: never counted
    const std::size_t bin = binOf(levelOf(energy));
    ++counts_[bin];
    energies_[bin] += energy;
}

std::size_t LoudnessMeter::Histogram::firstBinFrom(double gate) const
{
    // A bin counts when its middle is at or above the gate.
    const double first = std::ceil((gate - kAbsoluteGate) / kBinWidth - 0.5);
    return static_cast<std::size_t>(std::clamp(first, 0.0, static_cast<double>(counts_.size())));
}

double LoudnessMeter::Histogram::meanAbove(double gate, std::int64_t& count) const
{
    count = 0;
    double total = 0;
    for (std::size_t bin = firstBinFrom(gate); bin < counts_.size(); ++bin)
    {
        count += counts_[bin];
        total += energies_[bin];
    }
    return count > 0 ? total / static_cast<double>(count) : 0.0;
}

double LoudnessMeter::Histogram::levelAt(double gate, double fraction) const
{
    std::int64_t count = 0;
    meanAbove(gate, count);
    // The block at this index of the gated blocks in ascending order.
    const auto index = static_cast<std::int64_t>(static_cast<double>(count - 1) * fraction + 0.5);
    std::int64_t seen = 0;
    for (std::size_t bin = firstBinFrom(gate); bin < counts_.size(); ++bin)
    {
        seen += counts_[bin];
        if (seen > index)
            return kAbsoluteGate + (static_cast<double>(bin) + 0.5) * kBinWidth;
    }
    return kAbsoluteGate;
}

} // namespace Host
