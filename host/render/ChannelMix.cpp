#include "host/render/ChannelMix.h"

#include <algorithm>
#include <cmath>

namespace Host {

namespace {

const double kMinus3dB = 1.0 / std::sqrt(2.0);

struct SideGains
{
    double left;
    double right;
};

SideGains sideGains(ChannelMix::Speaker speaker)
{
    using Speaker = ChannelMix::Speaker;
    switch (speaker)
    {
    case Speaker::FrontLeft:
        return {1.0, 0.0};
    case Speaker::FrontRight:
        return {0.0, 1.0};
    case Speaker::Centre:
        return {kMinus3dB, kMinus3dB};
    case Speaker::SurroundLeft:
        return {kMinus3dB, 0.0};
    case Speaker::SurroundRight:
        return {0.0, kMinus3dB};
    case Speaker::SurroundCentre:
        return {0.5, 0.5};
    case Speaker::LowFrequency:
    case Speaker::Unknown:
        break;
    }
    return {0.0, 0.0};
}

} // namespace

std::vector<ChannelMix::Speaker> ChannelMix::usualLayout(int channelCount)
{
    using enum Speaker;
    switch (channelCount)
    {
    case 1:
        return {Centre};
    case 2:
        return {FrontLeft, FrontRight};
    case 3:
        return {FrontLeft, FrontRight, Centre};
    case 4:
        return {FrontLeft, FrontRight, SurroundLeft, SurroundRight};
    case 5:
        return {FrontLeft, FrontRight, Centre, SurroundLeft, SurroundRight};
    case 6:
        return {FrontLeft, FrontRight, Centre, LowFrequency, SurroundLeft, SurroundRight};
    case 7:
        return {FrontLeft, FrontRight, Centre, LowFrequency, SurroundCentre, SurroundLeft, SurroundRight};
    case 8:
        return {FrontLeft, FrontRight, Centre, LowFrequency, SurroundLeft, SurroundRight, SurroundLeft, SurroundRight};
    default:
        break;
    }
    std::vector<Speaker> layout;
    for (int channel = 0; channel < channelCount; ++channel)
        layout.push_back(channel % 2 == 0 ? FrontLeft : FrontRight);
    return layout;
}

ChannelMix::ChannelMix(int sourceChannels, int targetChannels, const std::vector<Speaker>& speakers)
    : sourceChannels_(std::max(sourceChannels, 1)), targetChannels_(std::clamp(targetChannels, 1, 2)),
      gains_(static_cast<std::size_t>(sourceChannels_ * targetChannels_), 0.0)
{
    if (sourceChannels_ <= 2 && (sourceChannels_ == 1 || targetChannels_ == 2))
    {
        // Mono to anything, and stereo to stereo: plain copies.
        copiesOnly_ = true;
        for (int target = 0; target < targetChannels_; ++target)
        {
            const int source = sourceChannels_ == 1 ? 0 : target;
            gains_[target * sourceChannels_ + source] = 1.0;
            copiedSource_.push_back(source);
        }
        return;
    }
    buildDownMix(speakers);
}

void ChannelMix::buildDownMix(const std::vector<Speaker>& speakers)
{
    const bool usable = static_cast<int>(speakers.size()) == sourceChannels_ &&
                        std::find(speakers.begin(), speakers.end(), Speaker::Unknown) == speakers.end();
    const std::vector<Speaker> layout = usable ? speakers : usualLayout(sourceChannels_);

    std::vector<SideGains> columns;
    double leftSum = 0.0;
    double rightSum = 0.0;
    for (Speaker speaker : layout)
    {
        columns.push_back(sideGains(speaker));
        leftSum += columns.back().left;
        rightSum += columns.back().right;
    }
    const double largest = std::max(leftSum, rightSum);
    const double scale = largest > 0.0 ? 1.0 / largest : 0.0;
    for (int source = 0; source < sourceChannels_; ++source)
    {
        const double left = columns[source].left * scale;
        const double right = columns[source].right * scale;
        if (targetChannels_ == 2)
        {
            gains_[source] = left;
            gains_[sourceChannels_ + source] = right;
        }
        else
        {
            gains_[source] = (left + right) / 2.0;
        }
    }
}

void ChannelMix::apply(const double* in, double* out, std::size_t frames) const
{
    if (copiesOnly_)
    {
        for (std::size_t frame = 0; frame < frames; ++frame)
        {
            for (int target = 0; target < targetChannels_; ++target)
                out[target] = in[copiedSource_[target]];
            in += sourceChannels_;
            out += targetChannels_;
        }
        return;
    }
    for (std::size_t frame = 0; frame < frames; ++frame)
    {
        for (int target = 0; target < targetChannels_; ++target)
        {
            const double* row = gains_.data() + target * sourceChannels_;
            double sum = 0.0;
            for (int source = 0; source < sourceChannels_; ++source)
                sum += row[source] * in[source];
            out[target] = sum;
        }
        in += sourceChannels_;
        out += targetChannels_;
    }
}

} // namespace Host
