#pragma once

#include <cstdint>

namespace Host {

/// Where the pre-flight report starts to warn about a rendered file. The user changes them in
/// the configuration file's "Preflight" object, under the names in the comments.
struct PreflightLimits
{
    double truePeakMax = -1.0;          ///< "TruePeakMax", dBTP: a lossy encoding of louder peaks clips
    std::int64_t clippedSamplesMax = 0; ///< "ClippedSamplesMax": samples at full scale allowed
    double loudnessMax = -9.0;          ///< "LoudnessMax", LUFS: streaming services turn louder tracks down
    double loudnessMin = -20.0;         ///< "LoudnessMin", LUFS
    double leadingSilenceMax = 2.0;     ///< "LeadingSilenceMax", seconds before the first sound
};

} // namespace Host
