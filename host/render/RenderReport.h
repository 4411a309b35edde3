#pragma once

#include "host/render/AudioFigures.h"

#include <cstdint>
#include <string>

namespace Host {

/// What one render did: the error text for people when it failed, and the figures the host shows
/// or logs when it succeeded.
struct RenderReport
{
    std::string error;           ///< empty on success
    std::int64_t framesRead = 0; ///< source frames consumed
    std::int64_t framesWritten = 0;
    std::int64_t clippedSamples = 0; ///< samples beyond full scale, clamped to it
    bool resampled = false;
    bool dithered = false;
    AudioFigures figures;            ///< of the written file, when it was measured
};

} // namespace Host
