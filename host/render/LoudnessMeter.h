#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Host {

/// Integrated loudness and loudness range of a stream of frames, as EBU R 128 and EBU Tech 3342
/// define them: every channel through the K-weighting filter; mean squares over 400 ms blocks
/// every 100 ms, gated at -70 LUFS and then 10 LU below their mean, for the integrated loudness;
/// over 3 s blocks every second, gated at -70 LUFS and then 20 LU below their mean, from the 10th
/// to the 95th percentile, for the range.
///
/// libebur128 measures the same, and the tests hold the two together; but it filters one sample
/// of one channel at a time and costs several times the render it would measure. Here the filter
/// keeps its state in registers, both channels at once, and each section's next state waits for
/// one multiply-add only; the blocks' levels go into histograms 0.01 LU wide, so the memory is
/// the same for a minute and for a day. Figures differ from an exact list of blocks by less than
/// a bin.
///
/// Threads: one meter belongs to one stream; it may run on any thread.
class LoudnessMeter
{
public:
    /// A second-order section of the K-weighting filter, for input u and state s:
    /// output b0 u[n] + s[n], and s[n+1] = b1 u[n] + b2 u[n-1] - a1 s[n] - a2 s[n-1].
    struct Section
    {
        double b0, b1, b2; ///< from the input
        double a1, a2;     ///< from the state (feedback)
    };

    /// A meter for `channels` (1 or 2) at `sampleRate` Hz (at least 8 kHz).
    LoudnessMeter(int channels, double sampleRate);

    /// Takes `count` frames of integers left-justified in 32 bits (full scale 2^31), interleaved.
    void add(const std::int32_t* samples, std::size_t count);

    /// LUFS; minus infinity when no block rises above the gates (silence, or too short a stream).
    double integratedLoudness() const;
    /// LU; 0 when fewer than two 3 s blocks pass the gates.
    double loudnessRange() const;

private:
    /// Loudness levels of blocks, 0.01 LU wide bins from the absolute gate (-70 LUFS) up; each
    /// bin counts its blocks and sums their energies, so that means are exact.
    class Histogram
    {
    public:
        Histogram();
        void add(double energy);
        /// Mean energy of the blocks whose level is at least `gate` LUFS, and how many there are.
        double meanAbove(double gate, std::int64_t& count) const;
        /// The level (LUFS) of the block at `fraction` of the blocks at or above `gate`, in order.
        double levelAt(double gate, double fraction) const;

    private:
        std::size_t binOf(double level) const;
        std::size_t firstBinFrom(double gate) const;
        std::vector<std::int64_t> counts_;
        std::vector<double> energies_;
    };

    void endSubBlock();

    int channels_;
    std::size_t framesPer100ms_;

    // The K-weighting filter: a high shelf, then a high pass.
    Section shelf_{};
    Section highPass_{};
    std::array<std::array<double, 6>, 2> state_{}; // per channel and section: see weigh()

    // Sub-blocks of 100 ms: the energy summed over the channels of the one being filled, and
    // the last 30 finished ones (a 3 s block), newest at subBlocks_[finished_ % 30].
    double energy_ = 0;
    std::size_t framesInSubBlock_ = 0;
    std::array<double, 30> subBlocks_{};
    std::int64_t finished_ = 0;

    Histogram momentary_; // 400 ms blocks
    Histogram shortTerm_; // 3 s blocks
};

} // namespace Host
