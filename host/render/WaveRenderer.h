#pragma once

#include "framework/services/AudioFormat.h"
#include "host/render/RenderReport.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace Host {

/// Renders an audio file to a WAV file in the format a publisher asked for (sample rate, mono or
/// stereo, 16, 24 or 32-bit integer samples).
///
/// The source is anything libsndfile reads (WAV, AIFF, FLAC, Ogg Vorbis and Opus, MP3, ...). It
/// is streamed in blocks: read, mixed to the target's channels as ChannelMix describes, resampled
/// with libsoxr when the rates differ, and quantised; memory use does not grow with the file.
///
/// Dither: a 16-bit target gets triangular dither, except when the samples already are exact
/// 16-bit (or shallower) integers that nothing changes on the way, that is an integer source of
/// at most 16 bits at the target's rate whose channels are only copied: dither would then add
/// noise to a perfect copy. A 24 or 32-bit target is rounded without dither; its rounding error
/// lies below any source's noise floor, and a 24-bit source copied to 24 bits stays bit-exact.
///
/// Clipping: the down-mix cannot exceed full scale, but the resampler's filter can overshoot on
/// material that was already at full scale. Such samples are clamped and counted in the report.
///
/// Failures (a missing or unreadable source, a target format it cannot write, an output folder
/// that refuses the file, a full disk, a cancelled render) return false with a sentence for
/// people in the report. The output appears only when it is complete (PendingOutputFile), so a
/// failure leaves neither a partial file nor a damaged earlier file of the same name.
///
/// Threads: render may run on any thread; one render at a time per renderer. The progress
/// callback runs on the rendering thread.
class WaveRenderer
{
public:
    /// Receives the fraction of the source done, growing from 0 towards 1, after each block, and
    /// exactly 1 once, as the last call, when the output is complete.
    using ProgressCallback = std::function<void(double fraction)>;

    explicit WaveRenderer(const KVX::AudioFormat& target) : target_(target) {}

    const KVX::AudioFormat& target() const { return target_; }
    void setProgressCallback(ProgressCallback callback) { progress_ = std::move(callback); }
    /// Flags the caller owns and keeps alive while rendering; setting either (from any thread, or
    /// a signal handler) stops the render before its next block.
    void setCancelFlag(const std::atomic<bool>* cancel, const std::atomic<bool>* alsoCancel = nullptr)
    {
        cancel_ = cancel;
        alsoCancel_ = alsoCancel;
    }
    /// Fixes the dither's noise sequence. The same source, target and seed always give the same
    /// bytes, whichever thread renders and whatever else renders beside it.
    void setDitherSeed(std::uint64_t seed) { ditherSeed_ = seed; }
    /// Decodes the source on a second thread, a few blocks ahead, and measures the output on a
    /// third, a few blocks behind, so that one render keeps more than one core busy. The output's
    /// bytes and figures are the same either way.
    void setDecodeAhead(bool ahead) { decodeAhead_ = ahead; }
    /// Whether the output is measured as it is written (AudioMeter) for the pre-flight report;
    /// on unless turned off.
    void setMeasure(bool measure) { measure_ = measure; }

    /// Renders `source` to a WAV file at `output`, replacing a file of that name on success.
    bool render(const std::filesystem::path& source, const std::filesystem::path& output, RenderReport& report);

    /// Why a format cannot be rendered to, or an empty string when it can.
    static std::string checkTarget(const KVX::AudioFormat& target);

private:
    KVX::AudioFormat target_;
    ProgressCallback progress_;
    const std::atomic<bool>* cancel_ = nullptr;
    const std::atomic<bool>* alsoCancel_ = nullptr;
    std::uint64_t ditherSeed_ = 0; ///< 0: the quantizer's own default
    bool decodeAhead_ = false;
    bool measure_ = true;
};

} // namespace Host
