#pragma once

#include <cstddef>
#include <vector>

namespace Host {

/// Maps the channels of a source onto one or two output channels with a fixed gain matrix.
///
/// - Mono to stereo: the channel is copied to both sides at full level, as a stereo system plays
///   a mono file.
/// - Stereo to stereo (and mono to mono): copied unchanged.
/// - More channels to stereo: each channel goes to the side its speaker is on. Front left and
///   right count fully, a centre channel at -3 dB (1/sqrt 2) on both sides, surround, side and
///   height channels at -3 dB on their own side, a rear centre at -6 dB on both sides, and the
///   low-frequency effects channel is dropped. Both rows are then scaled by the same factor so
///   that the larger row's gains add up to 1: the down-mix cannot exceed full scale whatever the
///   source holds. The price is level: 5.1 content only in the front pair comes out 7.7 dB lower.
/// - Anything to mono: the average of the stereo result's two sides.
///
/// Without a speaker layout from the file, the usual order for the channel count is assumed
/// (3: L R C; 4: L R Ls Rs; 5: L R C Ls Rs; 6: L R C LFE Ls Rs; 7: L R C LFE Cs Ls Rs;
/// 8: L R C LFE Ls Rs Lside Rside); beyond eight channels, even channels go left and odd ones
/// right.
class ChannelMix
{
public:
    enum class Speaker
    {
        Unknown,
        FrontLeft,
        FrontRight,
        Centre,
        LowFrequency,
        SurroundLeft,
        SurroundRight,
        SurroundCentre,
    };

    /// `speakers` holds one entry per source channel, or is empty when the file names none; an
    /// incomplete list or one with an unknown speaker is ignored in favour of the usual order.
    /// `targetChannels` is 1 or 2.
    ChannelMix(int sourceChannels, int targetChannels, const std::vector<Speaker>& speakers = {});

    int sourceChannels() const { return sourceChannels_; }
    int targetChannels() const { return targetChannels_; }
    double gain(int target, int source) const { return gains_[target * sourceChannels_ + source]; }
    /// True when every output channel is one source channel copied unchanged, so the mix adds no
    /// rounding of its own.
    bool copiesOnly() const { return copiesOnly_; }

    /// Mixes `frames` interleaved source frames from `in` into interleaved output frames in `out`.
    void apply(const double* in, double* out, std::size_t frames) const;

    static std::vector<Speaker> usualLayout(int channelCount);

private:
    void buildDownMix(const std::vector<Speaker>& speakers);

    int sourceChannels_;
    int targetChannels_;
    std::vector<double> gains_;     // targetChannels_ rows of sourceChannels_ gains
    std::vector<int> copiedSource_; // per output channel, when copiesOnly_
    bool copiesOnly_ = false;
};

} // namespace Host
