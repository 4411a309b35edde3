#pragma once

#include "framework/core/Types.h"

#include <type_traits>

namespace KVX {

/// The host's description of an audio stream. A plain record, copied by value.
struct AudioFormat
{
    enum FormatCode : int32
    {
        kIntegerPCM = 0,  ///< linear integer samples
        kFloatPCM = 1,    ///< floating-point samples
        kCompressed = 2,  ///< anything encoded (lossless or lossy)
    };

    double sampleRate = 0.0;  ///< frames per second
    int32 channelCount = 0;
    int32 bitDepth = 0;       ///< bits per sample as stored
    int32 options = 0;        ///< reserved for the host, 0
    int32 formatCode = kIntegerPCM;
    double startTime = 0.0;   ///< reserved for the host, 0.0
    double endTime = 0.0;     ///< reserved for the host, 0.0
    int32 layout = 3;         ///< reserved for the host: 3 is interleaved frames

    bool operator==(const AudioFormat&) const = default;
};
static_assert(std::is_trivially_copyable_v<AudioFormat>);

} // namespace KVX
