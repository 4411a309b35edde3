#pragma once

#include "host/render/AudioFigures.h"
#include "host/render/LoudnessMeter.h"
#include "host/render/TruePeakMeter.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Host {

/// Measures a render's output as it is written: loudness and loudness range (LoudnessMeter),
/// true peak (TruePeakMeter) and sample peak, clipped samples, silence at both ends, and whether
/// a stereo file's channels are identical. It sees each block once, beside the writer, so that
/// measuring costs no second decode; memory does not grow with the file's length.
///
/// Threads: one meter belongs to one render; it may run on any thread.
class AudioMeter
{
public:
    AudioMeter(const AudioMeter&) = delete;
    AudioMeter& operator=(const AudioMeter&) = delete;

    /// A meter for `channels` (1 or 2) at `sampleRate` Hz; nothing, with a sentence in `error`,
    /// when the meter cannot measure that.
    static std::unique_ptr<AudioMeter> create(int channels, double sampleRate, std::string& error);

    /// Takes `count` frames as written: `samples` are the integers left-justified in 32 bits,
    /// `levels` the same frames at full scale +-1.0 before they were quantised (so that the
    /// dither, different on each channel, does not hide a mono mix).
    void add(const double* levels, const std::int32_t* samples, std::size_t count, int bitDepth)
    {
        addLevels(levels, samples, count, bitDepth);
        addTruePeak(samples, count);
    }
    /// The two halves of add, which share nothing and so may run on two threads at once, each
    /// fed every block in order: loudness, sample peak, clipping, silence and channels; and the
    /// true peak.
    void addLevels(const double* levels, const std::int32_t* samples, std::size_t count, int bitDepth);
    void addTruePeak(const std::int32_t* samples, std::size_t count);

    /// The figures of everything added.
    AudioFigures finish();

private:
    AudioMeter(int channels, double sampleRate)
        : channels_(channels), sampleRate_(sampleRate), loudness_(channels, sampleRate), truePeak_(channels)
    {
    }

    int channels_;
    double sampleRate_;

    // Levels (addLevels)
    LoudnessMeter loudness_;             // integrated loudness and range, every frame
    std::int64_t frames_ = 0;            // frames added so far
    std::int64_t peakMagnitude_ = 0;     // of the samples, as left-justified integers
    std::int64_t clipped_ = 0;
    std::int64_t firstSound_ = -1;       // first and last frames above the silence level
    std::int64_t lastSound_ = -1;
    bool identical_ = true;

    // True peak (addTruePeak)
    TruePeakMeter truePeak_;
};

} // namespace Host
