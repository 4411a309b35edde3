#pragma once

#include <cstdint>
#include <limits>

namespace Host {

/// What the pre-flight report measures of one rendered file, from the samples that were written.
///
/// Levels that have no finite value (the loudness of a file that never rises above the meter's
/// gate, the peak of digital silence) are minus infinity.
struct AudioFigures
{
    static constexpr double kNone = -std::numeric_limits<double>::infinity();

    bool measured = false;           ///< false when the render was asked not to measure
    double seconds = 0;              ///< length of the rendered file
    double integratedLoudness = kNone; ///< LUFS, gated over the whole file
    double loudnessRange = 0;        ///< LU
    double truePeak = kNone;         ///< dBTP, between the samples as a converter plays them
    double samplePeak = kNone;       ///< dBFS, the largest sample
    std::int64_t clippedSamples = 0; ///< samples at full scale in the written file
    double leadingSilence = 0;       ///< seconds before the first sample above the silence level
    double trailingSilence = 0;      ///< seconds after the last one
    bool silent = false;             ///< no sample above the silence level anywhere
    bool channelsIdentical = false;  ///< a stereo file whose channels carry the same signal

    /// The silence level: samples whose magnitude stays below it (-60 dBFS) count as silence,
    /// so the dither's noise floor of a silent 16-bit file does too.
    static constexpr double kSilenceLevel = 0.001;
};

} // namespace Host
