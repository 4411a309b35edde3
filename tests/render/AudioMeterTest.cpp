// The figures of the pre-flight report, measured while a render writes its output, against
// signals whose loudness, peaks and silences are known.
#include "host/render/AudioMeter.h"
#include "host/render/WaveRenderer.h"

#include "TestSound.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <numbers>

using namespace RenderTest;
using Host::AudioFigures;
using Host::AudioMeter;
using Host::RenderReport;
using Host::WaveRenderer;

namespace {

/// Renders a source written by `sample` (float samples, so that levels above full scale survive)
/// and returns the report.
RenderReport render(const TempFolder& folder, int sampleRate, int channels, double seconds,
                    const std::function<double(std::int64_t, int)>& sample, int bitDepth = 16)
{
    const auto source = folder / "source.wav";
    EXPECT_TRUE(writeSound(source, SF_FORMAT_WAV | SF_FORMAT_FLOAT, sampleRate, channels,
                           static_cast<std::int64_t>(seconds * sampleRate), sample));
    WaveRenderer renderer(format(44100.0, 2, bitDepth));
    RenderReport report;
    EXPECT_TRUE(renderer.render(source, folder / "out.wav", report)) << report.error;
    return report;
}

} // namespace

TEST(AudioMeter, ASineOfKnownLevelReadsItsLoudnessAndPeaks)
{
    TempFolder folder;
    // The reference signal of loudness meters: 1 kHz at -23 dBFS on both channels reads -23 LUFS.
    const RenderReport reference = render(folder, 44100, 2, 20.0, [](std::int64_t frame, int) {
        return sine(level(-23.0), 1000.0, 44100, frame);
    });
    const AudioFigures& figures = reference.figures;
    ASSERT_TRUE(figures.measured);
    EXPECT_NEAR(figures.integratedLoudness, -23.0, 0.1);
    EXPECT_NEAR(figures.loudnessRange, 0.0, 0.1) << "a steady tone has no loudness range";
    EXPECT_NEAR(figures.samplePeak, -23.0, 0.05);
    EXPECT_NEAR(figures.truePeak, -23.0, 0.1);
    EXPECT_EQ(figures.clippedSamples, 0);
    EXPECT_FALSE(figures.silent);
    EXPECT_TRUE(figures.channelsIdentical) << "the same tone on both channels is a mono mix";
    EXPECT_NEAR(figures.seconds, 20.0, 1e-3);
    EXPECT_LT(figures.leadingSilence, 0.001);

    // 6 dB more on one channel only: the channels differ, the loudness rises by 10 log10((1 + 4) / 2).
    const RenderReport louder = render(folder, 44100, 2, 20.0, [](std::int64_t frame, int channel) {
        return sine(level(channel ? -17.0 : -23.0), 1000.0, 44100, frame);
    });
    EXPECT_FALSE(louder.figures.channelsIdentical);
    EXPECT_NEAR(louder.figures.integratedLoudness, -23.0 + 10.0 * std::log10(2.5), 0.1);
    EXPECT_NEAR(louder.figures.samplePeak, -17.0, 0.05);

    // A 48 kHz source is measured as rendered, at 44.1 kHz: the same loudness.
    const RenderReport resampled = render(folder, 48000, 2, 10.0, [](std::int64_t frame, int) {
        return sine(level(-23.0), 1000.0, 48000, frame);
    });
    EXPECT_NEAR(resampled.figures.integratedLoudness, -23.0, 0.1);
}

TEST(AudioMeter, PeaksBetweenSamplesAreFoundWhereTheSamplesStayLow)
{
    TempFolder folder;
    // A quarter of the sample rate, a half step out of phase: every sample lies 3 dB below the
    // wave's crest, which falls midway between two samples.
    const RenderReport report = render(
        folder, 44100, 2, 5.0,
        [](std::int64_t frame, int) { return sine(1.0, 11025.0, 44100, frame, std::numbers::pi / 4.0); }, 24);
    EXPECT_LT(report.figures.samplePeak, -3.0);
    EXPECT_GT(report.figures.truePeak, -0.5) << "the crest between the samples reaches full scale";
    EXPECT_EQ(report.figures.clippedSamples, 0);
}

TEST(AudioMeter, SilenceClippingAndTheEndsOfAFileAreCounted)
{
    TempFolder folder;
    // Digital silence, dithered to 16 bits on the way: still silent, no loudness, no peak to speak of.
    const RenderReport silence = render(folder, 44100, 2, 3.0, [](std::int64_t, int) { return 0.0; });
    EXPECT_TRUE(silence.figures.silent);
    EXPECT_EQ(silence.figures.integratedLoudness, AudioFigures::kNone);
    EXPECT_LT(silence.figures.samplePeak, -80.0);
    EXPECT_NEAR(silence.figures.leadingSilence, 3.0, 1e-3);

    // 2.5 s of silence, a second of tone, half a second of silence.
    const RenderReport framed = render(folder, 44100, 2, 4.0, [](std::int64_t frame, int) {
        return frame >= 110250 && frame < 154350 ? sine(0.5, 440.0, 44100, frame) : 0.0;
    });
    EXPECT_FALSE(framed.figures.silent);
    EXPECT_NEAR(framed.figures.leadingSilence, 2.5, 0.01);
    EXPECT_NEAR(framed.figures.trailingSilence, 0.5, 0.01);

    // A tone driven 3.5 dB past full scale: the samples beyond it are written at full scale.
    const RenderReport clipped = render(folder, 44100, 2, 1.0, [](std::int64_t frame, int) {
        return sine(1.5, 100.0, 44100, frame);
    });
    EXPECT_GT(clipped.figures.clippedSamples, 44100 / 2) << "about half of each period is clipped";
    EXPECT_NEAR(clipped.figures.samplePeak, 0.0, 0.01);
}

TEST(AudioMeter, MeasuringLeavesTheRenderedBytesAsTheyAre)
{
    TempFolder folder;
    const auto source = folder / "source.wav";
    ASSERT_TRUE(writeSound(source, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, 48000 * 2,
                           [](std::int64_t frame, int channel) { return sine(0.6, 300.0 + channel, 48000, frame); }));
    WaveRenderer measured(format(44100.0, 2, 16));
    WaveRenderer unmeasured(format(44100.0, 2, 16));
    unmeasured.setMeasure(false);
    measured.setDitherSeed(7);
    unmeasured.setDitherSeed(7);
    RenderReport withFigures, without;
    ASSERT_TRUE(measured.render(source, folder / "measured.wav", withFigures));
    ASSERT_TRUE(unmeasured.render(source, folder / "unmeasured.wav", without));
    EXPECT_TRUE(withFigures.figures.measured);
    EXPECT_FALSE(without.figures.measured);
    EXPECT_EQ(readBytes(folder / "measured.wav"), readBytes(folder / "unmeasured.wav"));
}

TEST(AudioMeter, MeasuringOnAThreadOfItsOwnGivesTheSameFigures)
{
    // A render that keeps a free core busy decodes ahead of the writer and measures behind it.
    TempFolder folder;
    const auto source = folder / "source.flac";
    ASSERT_TRUE(writeSound(source, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 48000, 2, 48000 * 7,
                           [](std::int64_t frame, int channel) {
                               const double swell = 0.3 + 0.25 * std::sin(static_cast<double>(frame) / 30000.0);
                               return frame < 48000 ? 0.0 : sine(swell, 2000.0 + 37.0 * channel, 48000, frame, 0.7);
                           }));
    RenderReport inline_, behind;
    WaveRenderer one(format(44100.0, 2, 16));
    ASSERT_TRUE(one.render(source, folder / "inline.wav", inline_)) << inline_.error;
    WaveRenderer three(format(44100.0, 2, 16));
    three.setDecodeAhead(true);
    ASSERT_TRUE(three.render(source, folder / "behind.wav", behind)) << behind.error;
    const AudioFigures& a = inline_.figures;
    const AudioFigures& b = behind.figures;
    ASSERT_TRUE(a.measured && b.measured);
    EXPECT_EQ(a.integratedLoudness, b.integratedLoudness);
    EXPECT_EQ(a.loudnessRange, b.loudnessRange);
    EXPECT_EQ(a.truePeak, b.truePeak);
    EXPECT_EQ(a.samplePeak, b.samplePeak);
    EXPECT_EQ(a.clippedSamples, b.clippedSamples);
    EXPECT_EQ(a.leadingSilence, b.leadingSilence);
    EXPECT_NEAR(a.leadingSilence, 1.0, 0.01);
    EXPECT_EQ(a.trailingSilence, b.trailingSilence);
    EXPECT_EQ(a.channelsIdentical, b.channelsIdentical);
    EXPECT_EQ(readBytes(folder / "inline.wav"), readBytes(folder / "behind.wav"));
}
