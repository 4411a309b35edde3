// The host's render step end to end: sources written with libsndfile, rendered, and read back.
#include "host/render/WaveRenderer.h"

#include "TestSound.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <numbers>
#include <random>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace RenderTest;
using Host::RenderReport;
using Host::WaveRenderer;

namespace {

const KVX::AudioFormat kCdStereo = format(44100.0, 2, 16);

} // namespace

TEST(WaveRenderer, FlacAt48kBecomesCdStereoWithItsLengthAndLevel)
{
    TempFolder folder;
    const auto source = folder / "tone.flac";
    constexpr std::int64_t kFrames = 3 * 48000;
    const double amplitude = std::pow(10.0, -6.0 / 20.0);
    ASSERT_TRUE(writeSound(source, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 48000, 1, kFrames,
                           [&](std::int64_t frame, int) { return sine(amplitude, 1000.0, 48000, frame); }));

    WaveRenderer renderer(kCdStereo);
    RenderReport report;
    ASSERT_TRUE(renderer.render(source, folder / "tone.wav", report)) << report.error;
    EXPECT_TRUE(report.error.empty());
    EXPECT_TRUE(report.resampled);
    EXPECT_TRUE(report.dithered);
    EXPECT_EQ(report.clippedSamples, 0);
    EXPECT_EQ(report.framesRead, kFrames);

    const Sound result = readSound(folder / "tone.wav");
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(result.info.samplerate, 44100);
    EXPECT_EQ(result.info.channels, 2);
    EXPECT_NEAR(static_cast<double>(result.info.frames), kFrames * 44100.0 / 48000.0, 1.0);
    EXPECT_EQ(report.framesWritten, result.info.frames);

    // The steady middle, away from the filter's start and end.
    const std::int64_t first = 44100 / 2;
    const std::int64_t last = result.info.frames - 44100 / 2;
    for (int channel = 0; channel < 2; ++channel)
        EXPECT_NEAR(decibels(rms(result, channel, first, last) / (amplitude / std::sqrt(2.0))), 0.0, 0.1)
            << "channel " << channel;
}

TEST(WaveRenderer, AnUnchangedFormatIsCopiedBitExact)
{
    TempFolder folder;
    std::mt19937 random(7);
    std::uniform_int_distribution<std::int32_t> sample24(-8388608, 8388607);
    std::vector<std::int32_t> samples(2 * 30000);
    for (auto& value : samples)
        value = sample24(random) * 256;
    // Both extremes of the range survive as well.
    samples[0] = -8388608 * 256;
    samples[1] = 8388607 * 256;
    ASSERT_TRUE(writeIntegers(folder / "in24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 44100, 2, samples));

    WaveRenderer deep(format(44100.0, 2, 24));
    RenderReport report;
    ASSERT_TRUE(deep.render(folder / "in24.wav", folder / "out24.wav", report)) << report.error;
    EXPECT_FALSE(report.resampled);
    EXPECT_FALSE(report.dithered);
    Sound result = readSound(folder / "out24.wav");
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    EXPECT_TRUE(result.samples == samples);

    // A 16-bit source copied to 16 bits gets no dither, so it stays exact too; a mono one is
    // copied to both sides.
    std::uniform_int_distribution<std::int32_t> sample16(-32768, 32767);
    std::vector<std::int32_t> mono(20000);
    for (auto& value : mono)
        value = sample16(random) * 65536;
    ASSERT_TRUE(writeIntegers(folder / "mono16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 1, mono));
    WaveRenderer cd(kCdStereo);
    ASSERT_TRUE(cd.render(folder / "mono16.wav", folder / "stereo16.wav", report)) << report.error;
    EXPECT_FALSE(report.dithered);
    result = readSound(folder / "stereo16.wav");
    ASSERT_TRUE(result.ok);
    ASSERT_EQ(result.info.frames, static_cast<sf_count_t>(mono.size()));
    std::size_t differences = 0;
    for (std::size_t frame = 0; frame < mono.size(); ++frame)
        differences += (result.samples[2 * frame] != mono[frame]) + (result.samples[2 * frame + 1] != mono[frame]);
    EXPECT_EQ(differences, 0u);
}

TEST(WaveRenderer, SixteenBitDitherStaysWithinOneStepAndKeepsQuietTones)
{
    TempFolder folder;
    WaveRenderer renderer(kCdStereo);
    RenderReport report;
    constexpr double kStep = 1.0 / 32768.0;

    // Digital silence, resampled and not.
    for (int rate : {48000, 44100})
    {
        const auto source = folder / ("silence" + std::to_string(rate) + ".wav");
        ASSERT_TRUE(
            writeSound(source, SF_FORMAT_WAV | SF_FORMAT_PCM_24, rate, 2, rate, [](std::int64_t, int) { return 0.0; }));
        ASSERT_TRUE(renderer.render(source, folder / "silence.wav", report)) << report.error;
        EXPECT_TRUE(report.dithered);
        const Sound result = readSound(folder / "silence.wav");
        ASSERT_TRUE(result.ok);
        std::int32_t largest = 0;
        std::size_t nonZero = 0;
        for (std::int32_t sample : result.samples)
        {
            largest = std::max(largest, std::abs(sample / 65536));
            nonZero += sample != 0;
        }
        EXPECT_LE(largest, 1) << rate;
        // The dither is there: plain rounding would give only zeros.
        EXPECT_GT(nonZero, result.samples.size() / 10) << rate;
    }

    // A tone of two steps' amplitude (-84 dBFS), which rounding alone would distort, keeps its
    // level; the measurement spans a whole number of cycles.
    const double amplitude = 2.0 * kStep;
    ASSERT_TRUE(writeSound(folder / "quiet.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 44100, 2, 3 * 44100,
                           [&](std::int64_t frame, int) { return sine(amplitude, 1000.0, 44100, frame); }));
    ASSERT_TRUE(renderer.render(folder / "quiet.wav", folder / "quiet16.wav", report)) << report.error;
    EXPECT_TRUE(report.dithered);
    const Sound result = readSound(folder / "quiet16.wav");
    ASSERT_TRUE(result.ok);
    for (int channel = 0; channel < 2; ++channel)
        EXPECT_NEAR(decibels(toneAmplitude(result, channel, 1000.0, 44100 / 2, 44100 / 2 + 2 * 44100) / amplitude), 0.0,
                    0.1)
            << "channel " << channel;
}

TEST(WaveRenderer, SixChannelsDownMixToStereoAsDocumented)
{
    TempFolder folder;
    // Six segments of 0.1 s; in segment k only channel k carries a constant 0.5.
    constexpr std::int64_t kSegment = 4410;
    ASSERT_TRUE(writeSound(folder / "surround.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 44100, 6, 6 * kSegment,
                           [](std::int64_t frame, int channel) { return frame / kSegment == channel ? 0.5 : 0.0; }));

    WaveRenderer renderer(format(44100.0, 2, 24));
    RenderReport report;
    ASSERT_TRUE(renderer.render(folder / "surround.wav", folder / "stereo.wav", report)) << report.error;
    EXPECT_FALSE(report.dithered);
    const Sound result = readSound(folder / "stereo.wav");
    ASSERT_TRUE(result.ok);
    ASSERT_EQ(result.info.channels, 2);
    ASSERT_EQ(result.info.frames, 6 * kSegment);

    // L R C LFE Ls Rs: fronts to their side, centre at -3 dB to both, surrounds at -3 dB to their
    // side, LFE dropped; everything scaled by 1 / (1 + sqrt 2).
    const double centre = 1.0 / std::sqrt(2.0);
    const double scale = 1.0 / (1.0 + 2.0 * centre);
    const double left[6] = {scale, 0.0, centre * scale, 0.0, centre * scale, 0.0};
    const double right[6] = {0.0, scale, centre * scale, 0.0, 0.0, centre * scale};
    for (int channel = 0; channel < 6; ++channel)
    {
        const std::int64_t middle = channel * kSegment + kSegment / 2;
        EXPECT_NEAR(result.value(middle, 0), 0.5 * left[channel], 1e-6) << "source channel " << channel;
        EXPECT_NEAR(result.value(middle, 1), 0.5 * right[channel], 1e-6) << "source channel " << channel;
    }

    // All six channels at full scale at once reach full scale and no further.
    ASSERT_TRUE(writeSound(folder / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 6, 4410,
                           [](std::int64_t, int) { return 1.0; }));
    ASSERT_TRUE(renderer.render(folder / "loud.wav", folder / "loud2.wav", report)) << report.error;
    EXPECT_EQ(report.clippedSamples, 0);
    const Sound loud = readSound(folder / "loud2.wav");
    ASSERT_TRUE(loud.ok);
    EXPECT_EQ(loud.samples[100], 8388607 * 256);

    // A file that names its speakers is mixed by those names: here the four channels are
    // L R C LFE, not the L R Ls Rs that four unnamed channels are taken as.
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 4;
    info.format = SF_FORMAT_WAVEX | SF_FORMAT_PCM_24;
    SNDFILE* file = sf_open((folder / "named.wav").c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    int map[4] = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER, SF_CHANNEL_MAP_LFE};
    ASSERT_EQ(sf_command(file, SFC_SET_CHANNEL_MAP_INFO, map, sizeof map), SF_TRUE);
    std::vector<double> frames(4 * 1000, 0.0);
    for (std::size_t frame = 0; frame < 1000; ++frame)
    {
        frames[frame * 4 + 2] = 0.5; // the centre
        frames[frame * 4 + 3] = 0.5; // the low-frequency channel
    }
    ASSERT_EQ(sf_writef_double(file, frames.data(), 1000), 1000);
    ASSERT_EQ(sf_close(file), 0);
    ASSERT_TRUE(renderer.render(folder / "named.wav", folder / "named2.wav", report)) << report.error;
    const Sound named = readSound(folder / "named2.wav");
    ASSERT_TRUE(named.ok);
    const double expected = 0.5 * centre / (1.0 + centre);
    EXPECT_NEAR(named.value(500, 0), expected, 1e-6);
    EXPECT_NEAR(named.value(500, 1), expected, 1e-6);
}

TEST(WaveRenderer, OvershootBeyondFullScaleIsClampedAndCounted)
{
    TempFolder folder;
    // A full-scale square wave: the resampler's filter rings past full scale at every edge.
    ASSERT_TRUE(writeSound(folder / "square.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, 48000,
                           [](std::int64_t frame, int) { return (frame / 24) % 2 == 0 ? 1.0 : -1.0; }));
    WaveRenderer renderer(kCdStereo);
    RenderReport report;
    ASSERT_TRUE(renderer.render(folder / "square.wav", folder / "out.wav", report)) << report.error;
    EXPECT_GT(report.clippedSamples, 0);
    const Sound result = readSound(folder / "out.wav");
    ASSERT_TRUE(result.ok);
    std::int64_t atFullScale = 0;
    for (std::int32_t sample : result.samples)
        atFullScale += sample == 32767 * 65536 || sample == -32768 * 65536;
    // Clamped, not wrapped around: every counted sample sits at one end of the range.
    EXPECT_GE(atFullScale, report.clippedSamples);
}

TEST(WaveRenderer, ProgressGrowsAndEndsAtOneOnce)
{
    TempFolder folder;
    ASSERT_TRUE(writeSound(folder / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 2, 5 * 48000,
                           [](std::int64_t frame, int) { return sine(0.25, 440.0, 48000, frame); }));
    WaveRenderer renderer(kCdStereo);
    std::vector<double> fractions;
    renderer.setProgressCallback([&](double fraction) { fractions.push_back(fraction); });
    RenderReport report;
    ASSERT_TRUE(renderer.render(folder / "in.wav", folder / "out.wav", report)) << report.error;
    ASSERT_GT(fractions.size(), 10u);
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_GE(fractions.front(), 0.0);
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_EQ(std::count(fractions.begin(), fractions.end(), 1.0), 1);
}

TEST(WaveRenderer, EveryFailureExplainsItselfAndLeavesNoOutput)
{
    TempFolder folder;
    const auto good = folder / "good.wav";
    ASSERT_TRUE(writeSound(good, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 48000, 2, 4 * 48000,
                           [](std::int64_t frame, int) { return sine(0.25, 440.0, 48000, frame); }));
    WaveRenderer renderer(kCdStereo);
    RenderReport report;
    const auto output = folder / "out.wav";
    auto expectNothingLeft = [&](const char* what) {
        EXPECT_FALSE(report.error.empty()) << what;
        EXPECT_FALSE(std::filesystem::exists(output)) << what;
        EXPECT_EQ(folder.fileNames(), std::vector<std::string>({"good.wav", "notes.wav"})) << what;
    };
    {
        std::ofstream text(folder / "notes.wav");
        text << "These are not the samples you are looking for.\n";
    }

    EXPECT_FALSE(renderer.render(folder / "missing.flac", output, report));
    EXPECT_NE(report.error.find("missing.flac"), std::string::npos) << report.error;
    EXPECT_NE(report.error.find("does not exist"), std::string::npos) << report.error;
    expectNothingLeft("missing source");

    EXPECT_FALSE(renderer.render(folder / "notes.wav", output, report));
    EXPECT_NE(report.error.find("notes.wav\" as audio"), std::string::npos) << report.error;
    expectNothingLeft("text file");

    // Output folders that take no file: one missing, one that is a file, and (unless running
    // with the power to write anywhere) one without write permission.
    EXPECT_FALSE(renderer.render(good, folder / "no-such-folder" / "out.wav", report));
    EXPECT_NE(report.error.find("no-such-folder"), std::string::npos) << report.error;
    EXPECT_NE(report.error.find("the folder does not exist"), std::string::npos) << report.error;
    expectNothingLeft("missing folder");
    EXPECT_FALSE(renderer.render(good, folder / "good.wav" / "out.wav", report));
    expectNothingLeft("file as folder");
    const auto locked = folder / "locked";
    std::filesystem::create_directory(locked);
    chmod(locked.c_str(), 0555);
    if (access(locked.c_str(), W_OK) != 0)
    {
        EXPECT_FALSE(renderer.render(good, locked / "out.wav", report));
        EXPECT_NE(report.error.find("Permission denied"), std::string::npos) << report.error;
        EXPECT_TRUE(std::filesystem::is_empty(locked));
    }
    std::filesystem::remove(locked);

    // A format the renderer cannot write.
    for (const KVX::AudioFormat& target : {format(48000.0, 6, 16), format(44100.0, 2, 8), format(44100.5, 2, 16)})
    {
        WaveRenderer unsupported(target);
        EXPECT_FALSE(unsupported.render(good, output, report));
        EXPECT_NE(report.error.find("Cannot render"), std::string::npos) << report.error;
        expectNothingLeft("unsupported target");
    }
    KVX::AudioFormat floating = kCdStereo;
    floating.formatCode = KVX::AudioFormat::kFloatPCM;
    EXPECT_FALSE(WaveRenderer(floating).render(good, output, report));
    expectNothingLeft("floating-point target");

    // Cancelled half way, over an earlier file of the same name, which stays as it was.
    {
        std::ofstream earlier(folder / "earlier.wav");
        earlier << "earlier take";
    }
    std::atomic<bool> cancel{false};
    double lastFraction = 0.0;
    renderer.setCancelFlag(&cancel);
    renderer.setProgressCallback([&](double fraction) {
        lastFraction = fraction;
        if (fraction >= 0.5)
            cancel = true;
    });
    EXPECT_FALSE(renderer.render(good, folder / "earlier.wav", report));
    EXPECT_NE(report.error.find("cancelled"), std::string::npos) << report.error;
    EXPECT_GE(lastFraction, 0.5);
    EXPECT_LT(lastFraction, 1.0);
    EXPECT_EQ(readBytes(folder / "earlier.wav"), "earlier take");
    std::filesystem::remove(folder / "earlier.wav");
    expectNothingLeft("cancelled");
    renderer.setCancelFlag(nullptr);
    renderer.setProgressCallback(nullptr);

    // A full disk, played by a file-size limit: writes past it fail with EFBIG.
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit previous{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &previous), 0);
    rlimit limited = previous;
    limited.rlim_cur = 64 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const bool rendered = renderer.render(good, output, report);
    setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(rendered);
    EXPECT_NE(report.error.find("Cannot write"), std::string::npos) << report.error;
    expectNothingLeft("full disk");

    // The same renderer still works afterwards.
    EXPECT_TRUE(renderer.render(good, output, report)) << report.error;
    EXPECT_TRUE(std::filesystem::exists(output));
}
