#include "host/render/AudioMeter.h"
#include "host/render/VectorSupport.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

namespace Host {

namespace {

constexpr double kFullScale = 2147483648.0; // of samples left-justified in 32 bits

/// What one pass over a block of samples finds: its largest and smallest sample and how many are
/// at full scale (at or above `highest`, or the most negative integer).
struct Extremes
{
    std::int32_t most = 0;
    std::int32_t least = 0;
    std::int64_t clipped = 0;
};

[[gnu::always_inline]] inline Extremes extremesOf(const std::int32_t* samples, std::size_t count, std::int32_t highest)
{
    // Without branches and counting in 32 bits, a stretch at a time, so that the compiler
    // vectorises the loop.
    Extremes found;
    constexpr std::size_t kStretch = std::size_t{1} << 20;
    for (std::size_t start = 0; start < count; start += kStretch)
    {
        std::int32_t most = found.most, least = found.least;
        std::uint32_t clipped = 0;
        for (std::size_t i = start, end = std::min(count, start + kStretch); i < end; ++i)
        {
            most = std::max(most, samples[i]);
            least = std::min(least, samples[i]);
            clipped += static_cast<std::uint32_t>((samples[i] >= highest) | (samples[i] == INT32_MIN));
        }
        found.most = most;
        found.least = least;
        found.clipped += clipped;
    }
    return found;
}

[[gnu::target("avx2")]] Extremes extremesWithAvx2(const std::int32_t* samples, std::size_t count, std::int32_t highest)
{
    return extremesOf(samples, count, highest);
}

Extremes extremesPlain(const std::int32_t* samples, std::size_t count, std::int32_t highest)
{
    return extremesOf(samples, count, highest);
}

const auto kExtremes = hasAvx2() ? extremesWithAvx2 : extremesPlain;

double decibels(double level)
{
    return level > 0 ? 20.0 * std::log10(level) : AudioFigures::kNone;
}

} // namespace

std::unique_ptr<AudioMeter> AudioMeter::create(int channels, double sampleRate, std::string& error)
{
    if ((channels != 1 && channels != 2) || !(sampleRate >= 8000.0) || sampleRate > 768000.0)
    {
        error = "loudness is measured only in mono or stereo between 8 and 768 kHz";
        return nullptr;
    }
    return std::unique_ptr<AudioMeter>(new AudioMeter(channels, sampleRate));
}

void AudioMeter::addLevels(const double* levels, const std::int32_t* samples, std::size_t count, int bitDepth)
{
    if (count == 0)
        return;
    loudness_.add(samples, count);

    // Passes over the samples without branches, then the silence at each end found by looking
    // only as far as the first sound.
    const std::int32_t highest = static_cast<std::int32_t>((0x7FFFFFFFu >> (32 - bitDepth)) << (32 - bitDepth));
    const auto silence = static_cast<std::int32_t>(AudioFigures::kSilenceLevel * kFullScale);
    const std::size_t width = static_cast<std::size_t>(channels_);
    const std::size_t values = count * width;
    const Extremes extremes = kExtremes(samples, values, highest);
    clipped_ += extremes.clipped;
    peakMagnitude_ = std::max({peakMagnitude_, static_cast<std::int64_t>(extremes.most),
                               -static_cast<std::int64_t>(extremes.least)});

    auto loud = [silence](std::int32_t sample) { return sample > silence || sample < -silence; };
    if (const std::int32_t* last = std::find_if(std::make_reverse_iterator(samples + values),
                                                std::make_reverse_iterator(samples), loud).base();
        last != samples)
    {
        lastSound_ = frames_ + static_cast<std::int64_t>(static_cast<std::size_t>(last - 1 - samples) / width);
        if (firstSound_ < 0)
            firstSound_ = frames_ + static_cast<std::int64_t>(
                                        static_cast<std::size_t>(std::find_if(samples, last, loud) - samples) / width);
    }
    if (channels_ == 2 && identical_)
        for (std::size_t frame = 0; frame < count && identical_; ++frame)
            identical_ = levels[2 * frame] == levels[2 * frame + 1];
    frames_ += static_cast<std::int64_t>(count);
}

void AudioMeter::addTruePeak(const std::int32_t* samples, std::size_t count)
{
    truePeak_.add(samples, count);
}

AudioFigures AudioMeter::finish()
{
    AudioFigures figures;
    figures.measured = true;
    figures.seconds = static_cast<double>(frames_) / sampleRate_;
    if (const double loudness = loudness_.integratedLoudness(); std::isfinite(loudness))
        figures.integratedLoudness = loudness;
    figures.loudnessRange = loudness_.loudnessRange();
    const double samplePeak = static_cast<double>(peakMagnitude_) / kFullScale;
    figures.samplePeak = decibels(samplePeak);
    figures.truePeak = decibels(std::max(truePeak_.finish(), samplePeak));
    figures.clippedSamples = clipped_;
    figures.silent = firstSound_ < 0;
    const std::int64_t soundFrom = figures.silent ? frames_ : firstSound_;
    const std::int64_t soundTo = figures.silent ? frames_ : lastSound_ + 1;
    figures.leadingSilence = static_cast<double>(soundFrom) / sampleRate_;
    figures.trailingSilence = static_cast<double>(frames_ - soundTo) / sampleRate_;
    figures.channelsIdentical = channels_ == 2 && identical_ && frames_ > 0;
    return figures;
}

} // namespace Host
