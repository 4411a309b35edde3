// The loudness and true-peak meters against libebur128 fed the same samples (for loudness, an
// exact list of blocks, no histogram), and against the loudness-range test signals of EBU Tech 3342.
#include "host/render/LoudnessMeter.h"
#include "host/render/TruePeakMeter.h"

#include "TestSound.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

using Host::LoudnessMeter;
using Host::TruePeakMeter;
using RenderTest::level;
using RenderTest::sine;

namespace {

struct Figures
{
    double integrated;
    double range;
};

/// Interleaved integers left-justified in 32 bits from `value(frame, channel)` at full scale 1.0.
std::vector<std::int32_t> samplesOf(int channels, std::int64_t frames,
                                    const std::function<double(std::int64_t, int)>& value)
{
    std::vector<std::int32_t> samples(static_cast<std::size_t>(frames * channels));
    for (std::int64_t frame = 0; frame < frames; ++frame)
        for (int channel = 0; channel < channels; ++channel)
            samples[static_cast<std::size_t>(frame * channels + channel)] =
                static_cast<std::int32_t>(std::lround(std::clamp(value(frame, channel), -1.0, 0.9999999) * 2147483648.0));
    return samples;
}

Figures measured(const std::vector<std::int32_t>& samples, int channels, double rate, std::size_t block)
{
    LoudnessMeter meter(channels, rate);
    const std::size_t frames = samples.size() / static_cast<std::size_t>(channels);
    for (std::size_t at = 0; at < frames; at += block)
        meter.add(samples.data() + at * static_cast<std::size_t>(channels), std::min(block, frames - at));
    return {meter.integratedLoudness(), meter.loudnessRange()};
}

Figures reference(const std::vector<std::int32_t>& samples, int channels, double rate)
{
    ebur128_state* meter = ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate),
                                        EBUR128_MODE_I | EBUR128_MODE_LRA);
    ebur128_add_frames_int(meter, samples.data(), samples.size() / static_cast<std::size_t>(channels));
    Figures figures{};
    ebur128_loudness_global(meter, &figures.integrated);
    ebur128_loudness_range(meter, &figures.range);
    ebur128_destroy(&meter);
    return figures;
}

} // namespace

TEST(LoudnessMeter, ReadsWhatLibebur128ReadsInBlocksOfAnySize)
{
    struct Case
    {
        const char* name;
        int channels;
        double rate;
        double seconds;
        std::function<double(std::int64_t, int)> value;
    };
    unsigned noise = 12345;
    auto hiss = [&noise] {
        noise = noise * 1664525u + 1013904223u;
        return static_cast<double>(noise >> 8) / 16777216.0 - 0.5;
    };
    const std::vector<Case> cases = {
        {"a tone swelling and fading on two channels", 2, 44100, 25,
         [](std::int64_t frame, int channel) {
             const double swell = 0.05 + 0.4 * std::pow(std::sin(static_cast<double>(frame) / 150000.0), 2);
             return sine(swell, 440.0 * (channel + 1), 44100, frame);
         }},
        {"noise with long quiet passages that the gates leave out", 2, 48000, 30,
         [&hiss](std::int64_t frame, int) {
             const bool quiet = (frame / 240000) % 2 == 1;
             return hiss() * (quiet ? 0.0005 : 0.6);
         }},
        {"bass and treble, where the weighting filter matters", 1, 44100, 12,
         [](std::int64_t frame, int) { return sine(0.3, 50.0, 44100, frame) + sine(0.2, 9000.0, 44100, frame); }},
        {"a rate whose 100 ms is not a whole number of frames", 2, 22050, 8,
         [](std::int64_t frame, int channel) { return sine(0.25, 700.0 + channel, 22050, frame); }},
    };
    for (const Case& test : cases)
    {
        const auto samples =
            samplesOf(test.channels, static_cast<std::int64_t>(test.seconds * test.rate), test.value);
        const Figures expected = reference(samples, test.channels, test.rate);
        for (std::size_t block : {1u, 441u, 4096u, 1000000u})
        {
            const Figures figures = measured(samples, test.channels, test.rate, block);
            EXPECT_NEAR(figures.integrated, expected.integrated, 0.011) << test.name << ", blocks of " << block;
            EXPECT_NEAR(figures.range, expected.range, 0.011) << test.name << ", blocks of " << block;
        }
    }
}

TEST(LoudnessMeter, RangeOfAlternatingLevelsAndTheEdgesOfMeasuring)
{
    // Tech 3342's first signals: a 1 kHz tone on both channels alternating between two levels
    // every 20 s has a range of their difference.
    for (const auto& [low, high] : {std::pair{-30.0, -20.0}, std::pair{-25.0, -20.0}})
    {
        const auto samples = samplesOf(2, 44100 * 60, [low, high](std::int64_t frame, int) {
            return sine(level((frame / (44100 * 20)) % 2 ? high : low), 1000.0, 44100, frame);
        });
        EXPECT_NEAR(measured(samples, 2, 44100, 8192).range, high - low, 0.1);
    }

    // Digital silence, and a stream shorter than one 400 ms block, have no loudness and no range.
    const auto silence = samplesOf(2, 44100 * 5, [](std::int64_t, int) { return 0.0; });
    const Figures silent = measured(silence, 2, 44100, 4096);
    EXPECT_TRUE(std::isinf(silent.integrated) && silent.integrated < 0);
    EXPECT_EQ(silent.range, 0.0);
    const auto brief = samplesOf(2, 44100 * 39 / 100, [](std::int64_t frame, int) {
        return sine(0.5, 1000.0, 44100, frame);
    });
    EXPECT_TRUE(std::isinf(measured(brief, 2, 44100, 4096).integrated));

    // Full scale square waves on both channels, louder than any real mix: still measured, not lost.
    const auto square = samplesOf(2, 44100 * 4, [](std::int64_t frame, int) { return frame % 4 < 2 ? 1.0 : -1.0; });
    const Figures loudest = measured(square, 2, 44100, 4096);
    EXPECT_NEAR(loudest.integrated, reference(square, 2, 44100).integrated, 0.011);
    EXPECT_GT(loudest.integrated, 0.0);
}

TEST(TruePeakMeter, FindsWhatLibebur128FindsInBlocksOfAnySize)
{
    struct Case
    {
        const char* name;
        std::function<double(std::int64_t, int)> value;
    };
    const std::vector<Case> cases = {
        {"bursts that grow, fall back and grow past the first crest, between the samples",
         [](std::int64_t frame, int channel) {
             const double second = static_cast<double>(frame) / 44100.0;
             const double envelope = second < 2 ? 0.2 + 0.3 * second : second < 4 ? 0.3 : 0.2 + 0.1875 * (second - 2);
             return sine(envelope, 11025.0 - 40.0 * channel, 44100, frame, std::numbers::pi / 4.0) +
                    sine(0.1, 97.0, 44100, frame);
         }},
        {"treble whose crests fall anywhere between the samples", [](std::int64_t frame, int channel) {
             return sine(0.7, 15001.0 + 3.0 * channel, 44100, frame);
         }},
        {"one click in silence", [](std::int64_t frame, int channel) {
             return frame == 100000 + channel ? 0.9 : 0.0;
         }},
        {"a low tone, as loud between the samples as on them", [](std::int64_t frame, int) {
             return sine(0.5, 60.0, 44100, frame);
         }},
        {"lone pulses cresting three quarters and a quarter of the way between two samples",
         [](std::int64_t frame, int channel) {
             // Band-limited to a quarter of the sample rate, under a Hann window of 81 frames.
             const double t = static_cast<double>(frame - 100000) - (channel == 0 ? 0.75 : 0.25);
             if (std::abs(t) > 40.0)
                 return 0.0;
             const double x = std::numbers::pi * t / 2.0;
             const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * t / 41.0);
             return 0.8 * window * (x == 0.0 ? 1.0 : std::sin(x) / x);
         }},
    };
    auto reference = [](const std::vector<std::int32_t>& samples, unsigned channels) {
        ebur128_state* full = ebur128_init(channels, 44100, EBUR128_MODE_TRUE_PEAK);
        ebur128_add_frames_int(full, samples.data(), samples.size() / channels);
        double expected = 0;
        for (unsigned channel = 0; channel < channels; ++channel)
        {
            double peak = 0;
            ebur128_true_peak(full, channel, &peak);
            expected = std::max(expected, peak);
        }
        ebur128_destroy(&full);
        return expected;
    };
    for (const Case& test : cases)
    {
        const auto stereo = samplesOf(2, 44100 * 6, test.value);
        const auto mono = samplesOf(1, 44100 * 6, test.value);
        for (const auto* samples : {&stereo, &mono})
        {
            const int channels = samples == &stereo ? 2 : 1;
            const std::size_t frames = samples->size() / static_cast<std::size_t>(channels);
            const double expected = reference(*samples, static_cast<unsigned>(channels));
            for (const auto vectors : {TruePeakMeter::Vectors::Widest, TruePeakMeter::Vectors::Avx2,
                                       TruePeakMeter::Vectors::Sse2})
                for (std::size_t block : {1u, 7u, 8u, 1000u, 8192u, 1000000u})
                {
                    if (!TruePeakMeter::supports(vectors))
                        continue;
                    TruePeakMeter meter(channels, vectors);
                    for (std::size_t at = 0; at < frames; at += block)
                        meter.add(samples->data() + at * static_cast<std::size_t>(channels),
                                  std::min(block, frames - at));
                    EXPECT_NEAR(20.0 * std::log10(meter.finish()), 20.0 * std::log10(expected), 0.1)
                        << test.name << ", " << channels << " channel(s), vectors " << static_cast<int>(vectors)
                        << ", blocks of " << block;
                }
        }
    }
}
