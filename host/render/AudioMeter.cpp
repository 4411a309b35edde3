#include "host/render/AudioMeter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace Host {

namespace {

constexpr double kFullScale = 2147483648.0; // of samples left-justified in 32 bits

std::int64_t magnitudeOf(std::int32_t sample)
{
    return sample < 0 ? -static_cast<std::int64_t>(sample) : sample;
}

double decibels(double level)
{
    return level > 0 ? 20.0 * std::log10(level) : AudioFigures::kNone;
}

/// The impulse response of the meter's oversampling filter at `sampleRate`, as the largest
/// output after each input frame: its sum bounds how far the filter can rise above the largest
/// sample it reads, and its length is how many frames back it reads.
std::vector<double> filterResponse(unsigned long sampleRate)
{
    std::vector<double> response;
    ebur128_state* meter = ebur128_init(1, sampleRate, EBUR128_MODE_TRUE_PEAK);
    if (!meter)
        return response;
    constexpr int kLongest = 256;
    double frame = 1.0;
    for (int i = 0; i < kLongest; ++i, frame = 0.0)
    {
        double peak = 0;
        if (ebur128_add_frames_double(meter, &frame, 1) != EBUR128_SUCCESS ||
            ebur128_prev_true_peak(meter, 0, &peak) != EBUR128_SUCCESS)
            break;
        response.push_back(peak);
    }
    ebur128_destroy(&meter);
    while (!response.empty() && response.back() == 0.0)
        response.pop_back();
    return response;
}

} // namespace

AudioMeter::~AudioMeter()
{
    if (loudness_)
        ebur128_destroy(&loudness_);
    if (truePeak_)
        ebur128_destroy(&truePeak_);
}

std::unique_ptr<AudioMeter> AudioMeter::create(int channels, double sampleRate, std::string& error)
{
    if ((channels != 1 && channels != 2) || !(sampleRate >= 8000.0) || sampleRate > 768000.0)
    {
        error = "loudness is measured only in mono or stereo between 8 and 768 kHz";
        return nullptr;
    }
    std::unique_ptr<AudioMeter> meter(new AudioMeter(channels, sampleRate));
    const auto rate = static_cast<unsigned long>(sampleRate);
    // The histogram keeps the meter's memory fixed however long the file is.
    meter->loudness_ = ebur128_init(static_cast<unsigned>(channels), rate,
                                    EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_HISTOGRAM);
    meter->truePeak_ = ebur128_init(static_cast<unsigned>(channels), rate, EBUR128_MODE_TRUE_PEAK);
    const std::vector<double> response = filterResponse(rate);
    if (!meter->loudness_ || !meter->truePeak_ || response.empty())
    {
        error = "the loudness meter cannot be set up";
        return nullptr;
    }
    meter->filterGain_ = 0;
    for (double value : response)
        meter->filterGain_ += value;
    meter->filterFrames_ = response.size();
    meter->history_.reserve(meter->filterFrames_ * static_cast<std::size_t>(channels));
    return meter;
}

void AudioMeter::addLevels(const double* levels, const std::int32_t* samples, std::size_t count, int bitDepth)
{
    if (count == 0)
        return;
    ebur128_add_frames_int(loudness_, samples, count);

    const std::int32_t highest = static_cast<std::int32_t>((0x7FFFFFFFu >> (32 - bitDepth)) << (32 - bitDepth));
    const auto silence = static_cast<std::int64_t>(AudioFigures::kSilenceLevel * kFullScale);
    const std::size_t width = static_cast<std::size_t>(channels_);
    std::int64_t peak = peakMagnitude_;
    for (std::size_t frame = 0; frame < count; ++frame)
    {
        bool sound = false;
        for (std::size_t channel = 0; channel < width; ++channel)
        {
            const std::int32_t sample = samples[frame * width + channel];
            const std::int64_t magnitude = magnitudeOf(sample);
            peak = std::max(peak, magnitude);
            clipped_ += sample >= highest || sample == INT32_MIN;
            sound = sound || magnitude > silence;
        }
        if (sound)
        {
            if (firstSound_ < 0)
                firstSound_ = frames_ + static_cast<std::int64_t>(frame);
            lastSound_ = frames_ + static_cast<std::int64_t>(frame);
        }
    }
    peakMagnitude_ = peak;
    if (channels_ == 2 && identical_)
        for (std::size_t frame = 0; frame < count && identical_; ++frame)
            identical_ = levels[2 * frame] == levels[2 * frame + 1];
    frames_ += static_cast<std::int64_t>(count);
}

void AudioMeter::addTruePeak(const std::int32_t* samples, std::size_t count)
{
    if (count == 0)
        return;
    // The filter's outputs while this block goes in read the block and the frames before it.
    std::int64_t largest = 0;
    for (std::int32_t sample : history_)
        largest = std::max(largest, magnitudeOf(sample));
    for (std::size_t i = 0; i < count * static_cast<std::size_t>(channels_); ++i)
        largest = std::max(largest, magnitudeOf(samples[i]));
    if (largest > 0 && static_cast<double>(largest) / kFullScale * filterGain_ > truePeakLevel_)
    {
        // After a gap the filter still holds older frames: the frames just before this block go
        // in first, and what the filter makes of that jump is not counted.
        if (truePeakFedTo_ != truePeakFrames_ && !history_.empty())
            ebur128_add_frames_int(truePeak_, history_.data(), history_.size() / static_cast<std::size_t>(channels_));
        ebur128_add_frames_int(truePeak_, samples, count);
        for (int channel = 0; channel < channels_; ++channel)
            if (double peak = 0;
                ebur128_prev_true_peak(truePeak_, static_cast<unsigned>(channel), &peak) == EBUR128_SUCCESS)
                truePeakLevel_ = std::max(truePeakLevel_, peak);
        truePeakFedTo_ = truePeakFrames_ + static_cast<std::int64_t>(count);
    }
    keepHistory(samples, count);
    truePeakFrames_ += static_cast<std::int64_t>(count);
}

void AudioMeter::keepHistory(const std::int32_t* samples, std::size_t count)
{
    const std::size_t width = static_cast<std::size_t>(channels_);
    const std::size_t keep = std::min(count, filterFrames_);
    const std::size_t old = std::min(history_.size() / width, filterFrames_ - keep);
    history_.erase(history_.begin(), history_.end() - static_cast<std::ptrdiff_t>(old * width));
    history_.insert(history_.end(), samples + (count - keep) * width, samples + count * width);
}

AudioFigures AudioMeter::finish()
{
    AudioFigures figures;
    figures.measured = true;
    figures.seconds = static_cast<double>(frames_) / sampleRate_;
    if (double loudness = 0; ebur128_loudness_global(loudness_, &loudness) == EBUR128_SUCCESS && std::isfinite(loudness))
        figures.integratedLoudness = loudness;
    if (double range = 0; ebur128_loudness_range(loudness_, &range) == EBUR128_SUCCESS && std::isfinite(range))
        figures.loudnessRange = range;
    const double samplePeak = static_cast<double>(peakMagnitude_) / kFullScale;
    figures.samplePeak = decibels(samplePeak);
    figures.truePeak = decibels(std::max(truePeakLevel_, samplePeak));
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
