// Render speed as a multiple of real time: a 5-minute 48 kHz 24-bit stereo FLAC file to 44.1 kHz
// 16-bit stereo WAV, the common case of a mixdown handed to the publisher. The peer, measured in
// the same run on the same file, is a plain libsndfile decode to a WAV file of the source's own
// format (no conversion): the floor that file input and output alone cost. The peak resident size shows
// that memory does not grow with the file.
//
// Usage: render_bench [minutes] [runs]
#include "host/render/WaveRenderer.h"

#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace {

constexpr int kSourceRate = 48000;

long peakResidentKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

bool writeSource(const std::filesystem::path& path, long frames)
{
    SF_INFO info{};
    info.samplerate = kSourceRate;
    info.channels = 2;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return false;
    // Music-like content: two detuned tones and a little noise, around -12 dBFS.
    std::vector<double> block(2 * 8192);
    unsigned noise = 1;
    bool ok = true;
    for (long start = 0; start < frames && ok; start += 8192)
    {
        const long count = std::min<long>(8192, frames - start);
        for (long frame = 0; frame < count; ++frame)
        {
            const double time = static_cast<double>(start + frame) / kSourceRate;
            noise = noise * 1664525u + 1013904223u;
            const double hiss = (static_cast<double>(noise >> 8) / 16777216.0 - 0.5) * 0.01;
            block[2 * frame] = 0.15 * std::sin(2 * std::numbers::pi * 220.0 * time) + hiss;
            block[2 * frame + 1] = 0.15 * std::sin(2 * std::numbers::pi * 331.0 * time) - hiss;
        }
        ok = sf_writef_double(file, block.data(), count) == count;
    }
    return sf_close(file) == 0 && ok;
}

bool plainCopy(const std::filesystem::path& from, const std::filesystem::path& to)
{
    SF_INFO info{};
    SNDFILE* in = sf_open(from.c_str(), SFM_READ, &info);
    if (!in)
        return false;
    SF_INFO wave = info;
    wave.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SNDFILE* out = sf_open(to.c_str(), SFM_WRITE, &wave);
    if (!out)
    {
        sf_close(in);
        return false;
    }
    std::vector<int> block(static_cast<std::size_t>(8192 * info.channels));
    bool ok = true;
    for (sf_count_t read; ok && (read = sf_readf_int(in, block.data(), 8192)) > 0;)
        ok = sf_writef_int(out, block.data(), read) == read;
    sf_close(in);
    return sf_close(out) == 0 && ok;
}

template <class Work> double bestSeconds(int runs, Work work)
{
    double best = 1e300;
    for (int run = 0; run < runs; ++run)
    {
        const auto start = std::chrono::steady_clock::now();
        if (!work())
            return -1.0;
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

} // namespace

int main(int argc, char** argv)
{
    const double minutes = argc > 1 ? std::atof(argv[1]) : 5.0;
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
    const long frames = static_cast<long>(minutes * 60.0 * kSourceRate);
    const double duration = static_cast<double>(frames) / kSourceRate;

    std::string pattern = (std::filesystem::temp_directory_path() / "render-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        return 1;
    const std::filesystem::path folder = pattern;
    const auto source = folder / "source.flac";
    if (!writeSource(source, frames))
    {
        std::fprintf(stderr, "render_bench: cannot write the source\n");
        return 1;
    }
    const long residentBefore = peakResidentKilobytes();

    KVX::AudioFormat cd;
    cd.sampleRate = 44100.0;
    cd.channelCount = 2;
    cd.bitDepth = 16;
    Host::WaveRenderer renderer(cd);
    Host::RenderReport report;
    // The same render without the pre-flight measurement, for its cost: the two take turns and
    // each keeps its best run, so that a burst of other work on the machine does not fall on one.
    Host::WaveRenderer unmeasured(cd);
    unmeasured.setMeasure(false);
    Host::RenderReport unmeasuredReport;
    double render = 1e300;
    double bare = 1e300;
    for (int run = 0; run < runs && render >= 0 && bare >= 0; ++run)
    {
        const double measured = bestSeconds(1, [&] { return renderer.render(source, folder / "cd.wav", report); });
        render = measured < 0 ? measured : std::min(render, measured);
        const double plain =
            bestSeconds(1, [&] { return unmeasured.render(source, folder / "bare.wav", unmeasuredReport); });
        bare = plain < 0 ? plain : std::min(bare, plain);
    }
    const long residentAfter = peakResidentKilobytes();
    // And on three threads, as a render does when a core is free: decoding ahead, measuring behind.
    Host::WaveRenderer spread(cd);
    spread.setDecodeAhead(true);
    Host::RenderReport spreadReport;
    const double threaded =
        bestSeconds(runs, [&] { return spread.render(source, folder / "spread.wav", spreadReport); });
    const double copy = bestSeconds(runs, [&] { return plainCopy(source, folder / "copy.wav"); });

    KVX::AudioFormat sameRate = cd;
    sameRate.sampleRate = kSourceRate;
    Host::WaveRenderer requantizer(sameRate);
    Host::RenderReport requantized;
    const double noResampling =
        bestSeconds(runs, [&] { return requantizer.render(source, folder / "same.wav", requantized); });

    std::filesystem::remove_all(folder);
    if (render < 0 || bare < 0 || threaded < 0 || copy < 0 || noResampling < 0)
    {
        std::fprintf(stderr, "render_bench: %s\n",
                     report.error.empty() ? requantized.error.c_str() : report.error.c_str());
        return 1;
    }
    std::printf("source: %.1f min, 48 kHz 24-bit stereo FLAC; best of %d runs\n", minutes, runs);
    std::printf("render to 44.1 kHz 16-bit WAV:      %7.3f s  %6.1fx real time  (clipped %lld)\n", render,
                duration / render, static_cast<long long>(report.clippedSamples));
    std::printf("the same, not measured:             %7.3f s  %6.1fx real time\n", bare, duration / bare);
    std::printf("pre-flight measurement cost:        %6.1f %% of the render  (%.1f LUFS, %.1f dBTP)\n",
                100.0 * (render - bare) / bare, report.figures.integratedLoudness, report.figures.truePeak);
    std::printf("measured, with a free core:         %7.3f s  %6.1fx real time  (%.1f %% over not measured)\n",
                threaded, duration / threaded, 100.0 * (threaded - bare) / bare);
    std::printf("same rate, 16-bit with dither:      %7.3f s  %6.1fx real time\n", noResampling,
                duration / noResampling);
    std::printf("peer, plain libsndfile decode:     %7.3f s  %6.1fx real time\n", copy, duration / copy);
    std::printf("render / plain decode:              %7.2f\n", render / copy);
    std::printf("peak resident size: %ld kB before rendering, %ld kB after\n", residentBefore, residentAfter);
    return 0;
}
