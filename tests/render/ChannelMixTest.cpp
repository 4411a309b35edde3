// The channel mapping of the render step: copies where the channel counts allow, and a down-mix
// that keeps each speaker on its side and can never exceed full scale.
#include "host/render/ChannelMix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using Host::ChannelMix;
using Speaker = ChannelMix::Speaker;

namespace {

const double kCentre = 1.0 / std::sqrt(2.0);

std::vector<double> mixOneFrame(const ChannelMix& mix, const std::vector<double>& frame)
{
    std::vector<double> out(static_cast<std::size_t>(mix.targetChannels()));
    mix.apply(frame.data(), out.data(), 1);
    return out;
}

} // namespace

TEST(ChannelMix, MonoAndStereoAreCopiedUnchanged)
{
    const ChannelMix monoToStereo(1, 2);
    EXPECT_TRUE(monoToStereo.copiesOnly());
    EXPECT_EQ(mixOneFrame(monoToStereo, {0.3}), (std::vector<double>{0.3, 0.3}));

    const ChannelMix stereo(2, 2);
    EXPECT_TRUE(stereo.copiesOnly());
    EXPECT_EQ(mixOneFrame(stereo, {0.25, -0.5}), (std::vector<double>{0.25, -0.5}));

    const ChannelMix mono(1, 1);
    EXPECT_TRUE(mono.copiesOnly());
    EXPECT_EQ(mixOneFrame(mono, {-0.75}), (std::vector<double>{-0.75}));
}

TEST(ChannelMix, MonoTargetTakesTheAverageOfBothSides)
{
    const ChannelMix stereoToMono(2, 1);
    EXPECT_FALSE(stereoToMono.copiesOnly());
    EXPECT_DOUBLE_EQ(mixOneFrame(stereoToMono, {0.5, -0.1})[0], 0.2);

    // 5.1 to mono: the average of the two rows of the stereo down-mix.
    const ChannelMix surroundToMono(6, 1);
    const double scale = 1.0 / (1.0 + 2.0 * kCentre);
    EXPECT_NEAR(surroundToMono.gain(0, 0), scale / 2.0, 1e-12);
    EXPECT_NEAR(surroundToMono.gain(0, 2), kCentre * scale, 1e-12);
    EXPECT_EQ(surroundToMono.gain(0, 3), 0.0);
}

TEST(ChannelMix, SixChannelsFollowTheUsualOrderWithoutALayout)
{
    const ChannelMix mix(6, 2);
    EXPECT_FALSE(mix.copiesOnly());
    const double scale = 1.0 / (1.0 + 2.0 * kCentre); // 0.414: the front pair comes out 7.7 dB lower
    const double left[6] = {scale, 0.0, kCentre * scale, 0.0, kCentre * scale, 0.0};
    const double right[6] = {0.0, scale, kCentre * scale, 0.0, 0.0, kCentre * scale};
    for (int source = 0; source < 6; ++source)
    {
        EXPECT_NEAR(mix.gain(0, source), left[source], 1e-12) << "channel " << source;
        EXPECT_NEAR(mix.gain(1, source), right[source], 1e-12) << "channel " << source;
    }
}

TEST(ChannelMix, TheFileLayoutDecidesWhereAChannelGoes)
{
    // Four channels are taken as L R Ls Rs unless the file names them: here the third is a centre
    // and the fourth the low-frequency channel.
    const ChannelMix named(4, 2, {Speaker::FrontLeft, Speaker::FrontRight, Speaker::Centre, Speaker::LowFrequency});
    const double scale = 1.0 / (1.0 + kCentre);
    EXPECT_NEAR(named.gain(0, 2), kCentre * scale, 1e-12);
    EXPECT_NEAR(named.gain(1, 2), kCentre * scale, 1e-12);
    EXPECT_EQ(named.gain(0, 3), 0.0);
    EXPECT_EQ(named.gain(1, 3), 0.0);

    const ChannelMix usual(4, 2);
    EXPECT_GT(usual.gain(0, 2), 0.0);
    EXPECT_EQ(usual.gain(1, 2), 0.0);

    // A layout with a speaker the mix does not know, or of the wrong length, falls back to the
    // usual order.
    const ChannelMix unknown(4, 2, {Speaker::FrontLeft, Speaker::Unknown, Speaker::Centre, Speaker::LowFrequency});
    const ChannelMix shortLayout(4, 2, {Speaker::Centre});
    for (int source = 0; source < 4; ++source)
    {
        EXPECT_EQ(unknown.gain(0, source), usual.gain(0, source));
        EXPECT_EQ(shortLayout.gain(1, source), usual.gain(1, source));
    }
}

TEST(ChannelMix, DownMixNeverExceedsFullScale)
{
    for (int channels = 3; channels <= 12; ++channels)
    {
        const ChannelMix mix(channels, 2);
        std::vector<double> fullScale(static_cast<std::size_t>(channels), 1.0);
        const std::vector<double> out = mixOneFrame(mix, fullScale);
        EXPECT_LE(std::max(out[0], out[1]), 1.0 + 1e-12) << channels << " channels";
        // The louder side is scaled to exactly full scale, not further down.
        EXPECT_NEAR(std::max(out[0], out[1]), 1.0, 1e-12) << channels << " channels";
    }
}
