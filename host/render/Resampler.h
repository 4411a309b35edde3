#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct soxr;

namespace Host {

/// A streaming sample-rate converter on libsoxr for interleaved double samples. Input goes in
/// blocks of any size; converted frames leave through a sink as soon as they are ready, so memory
/// stays the same for a file of any length.
///
/// The filter is linear phase with soxr's default pass band (flat to 91% of the lower Nyquist
/// frequency); its precision follows the bit depth being rendered: 20 bits for a 16-bit target,
/// 28 bits (double-precision arithmetic) for deeper ones.
class Resampler
{
public:
    /// Receives `frames` converted interleaved frames; the block is valid during the call only.
    using Sink = std::function<bool(const double* samples, std::size_t frames)>;

    /// Returns nothing and sets `error` when libsoxr refuses the rates or the channel count.
    static std::unique_ptr<Resampler> create(double inputRate, double outputRate, int channels, int targetBitDepth,
                                             std::string& error);
    ~Resampler();

    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// Converts `frames` input frames; false when libsoxr fails (`error` set) or the sink refuses.
    bool process(const double* samples, std::size_t frames, const Sink& sink, std::string& error);
    /// Ends the input and sends the frames still held in the filter; call once, after the last block.
    bool flush(const Sink& sink, std::string& error);

private:
    Resampler(soxr* resampler, int channels, std::size_t outputCapacity);

    soxr* resampler_;
    int channels_;
    std::vector<double> output_;
    std::size_t outputCapacity_; // frames
};

} // namespace Host
