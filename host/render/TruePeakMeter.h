#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Host {

/// The true peak of a stream of frames: the largest magnitude of the signal between its samples,
/// as a converter plays it, found by oversampling four times (ITU-R BS.1770's method).
///
/// The oversampling filter is a windowed sinc 47 taps long whose every fourth tap is zero, so
/// the samples themselves pass unchanged and only the three points between samples are computed,
/// twelve taps each, folded in half since the filter is symmetric, for 4, 8 or 16 samples at a
/// time (SSE2, AVX2 or AVX-512, as the processor has it).
/// libebur128's meter, which the tests hold this one to, computes all four points one sample at
/// a time and costs more than the whole render it would measure.
///
/// Threads: one meter belongs to one stream; it may run on any thread.
class TruePeakMeter
{
public:
    static constexpr int kTaps = 12; ///< taps of each point between two samples

    /// The vector instructions the meter computes with.
    enum class Vectors
    {
        Widest, ///< the widest this processor has: AVX-512, else AVX2 with FMA, else SSE2
        Avx2,   ///< eight samples at a time
        Sse2,   ///< four samples at a time (every x86-64 processor)
    };
    /// Whether this processor can run `vectors`.
    static bool supports(Vectors vectors);

    /// A meter for `channels` (1 or 2), with `vectors` (which the processor must support; the
    /// tests run every kind it does, the renders the widest).
    explicit TruePeakMeter(int channels, Vectors vectors = Vectors::Widest);

    /// Takes `count` frames of integers left-justified in 32 bits (full scale 2^31), interleaved.
    void add(const std::int32_t* samples, std::size_t count);

    /// The true peak at full scale 1.0 of everything added, as if silence followed it.
    double finish();

private:
    /// Measures the first `values` samples in line_ and keeps the last frames that later points
    /// still read.
    void measure(std::size_t values);

    int channels_;
    float (*largest_)(const float* line, std::size_t count, std::size_t width);
    // The samples as floats at full scale 1.0, interleaved, the frames kept from before first.
    std::vector<float> line_;
    std::size_t kept_ = kTaps - 1; // frames at the start of each line read again with the next block
    float peak_ = 0;
};

} // namespace Host
