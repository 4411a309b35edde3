// Files rendered side by side: the same bytes whatever the number of workers, the first failure
// or an interrupt stopping every worker, and nothing half-written left behind.
#include "host/render/BatchRenderer.h"
#include "host/render/WaveRenderer.h"

#include "TestSound.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <mutex>
#include <numbers>
#include <set>

using namespace RenderTest;
using Host::BatchRenderer;

namespace {

/// 48 kHz 24-bit stereo FLAC sources of different lengths, each a quiet tone of its own, so that
/// the 16-bit dither shows in every sample.
std::vector<std::filesystem::path> writeSources(const TempFolder& folder, int count)
{
    std::vector<std::filesystem::path> sources;
    for (int i = 0; i < count; ++i)
    {
        const auto path = folder / ("take " + std::to_string(i) + ".flac");
        const double frequency = 220.0 * (i + 1);
        EXPECT_TRUE(writeSound(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 48000, 2, 24000 + 9000 * i,
                               [frequency](std::int64_t frame, int channel) {
                                   return 0.001 * std::sin(2 * std::numbers::pi * frequency * frame / 48000.0 + channel);
                               }));
        sources.push_back(path);
    }
    return sources;
}

std::vector<BatchRenderer::Task> tasksInto(const std::vector<std::filesystem::path>& sources,
                                           const std::filesystem::path& folder)
{
    std::vector<BatchRenderer::Task> tasks;
    for (const auto& source : sources)
        tasks.push_back({source, folder / (source.stem().string() + ".wav"), format(44100.0, 2, 16)});
    return tasks;
}

bool anyPendingFile(const TempFolder& folder)
{
    for (const std::string& name : folder.fileNames())
        if (name.ends_with(".part"))
            return true;
    return false;
}

} // namespace

TEST(BatchRenderer, EveryFileHasTheSameBytesWhateverTheNumberOfWorkers)
{
    TempFolder in, one, many;
    const auto sources = writeSources(in, 5);
    const auto serial = BatchRenderer::render(tasksInto(sources, one.path()), 1);
    ASSERT_TRUE(serial.ok) << serial.error;
    std::vector<size_t> order;
    std::mutex mutex;
    const auto parallel = BatchRenderer::render(tasksInto(sources, many.path()), 4, nullptr,
                                                [&](size_t task, BatchRenderer::Event event) {
                                                    std::lock_guard lock(mutex);
                                                    if (event == BatchRenderer::Event::Finished)
                                                        order.push_back(task);
                                                });
    ASSERT_TRUE(parallel.ok) << parallel.error;
    EXPECT_EQ(std::set<size_t>(order.begin(), order.end()).size(), sources.size()) << "each file finished once";
    for (const auto& source : sources)
    {
        const std::string name = source.stem().string() + ".wav";
        const std::string bytes = readBytes(one / name);
        ASSERT_GT(bytes.size(), 44u) << name;
        EXPECT_EQ(bytes, readBytes(many / name)) << name << " differs between one and four workers";
    }
    ASSERT_EQ(parallel.reports.size(), sources.size());
    EXPECT_TRUE(parallel.reports[0].dithered);

    // Decoding ahead on a second thread (as the last files of a batch are) changes no byte, and
    // a cancel stops it too.
    for (const bool ahead : {false, true})
    {
        Host::WaveRenderer renderer(format(44100.0, 2, 16));
        renderer.setDitherSeed(BatchRenderer::ditherSeedFor("take 3.wav"));
        renderer.setDecodeAhead(ahead);
        Host::RenderReport report;
        const auto output = many / (ahead ? "ahead.wav" : "inline.wav");
        ASSERT_TRUE(renderer.render(sources[3], output, report)) << report.error;
        EXPECT_EQ(readBytes(output), readBytes(one / "take 3.wav")) << (ahead ? "decoded ahead" : "decoded inline");
        std::atomic<bool> cancel{true};
        renderer.setCancelFlag(&cancel);
        EXPECT_FALSE(renderer.render(sources[3], many / "cancelled.wav", report));
        EXPECT_FALSE(std::filesystem::exists(many / "cancelled.wav"));
    }

    // The dither is the file's own: the same source under another name gets other noise.
    std::filesystem::copy_file(sources[0], in / "renamed.flac");
    ASSERT_TRUE(BatchRenderer::render({{in / "renamed.flac", many / "renamed.wav", format(44100.0, 2, 16)}}, 1).ok);
    EXPECT_NE(readBytes(many / "renamed.wav"), readBytes(many / "take 0.wav"));
    EXPECT_NE(BatchRenderer::ditherSeedFor("a/x.wav"), BatchRenderer::ditherSeedFor("a/y.wav"));
    EXPECT_EQ(BatchRenderer::ditherSeedFor("a/x.wav"), BatchRenderer::ditherSeedFor("b/x.wav"));
}

TEST(BatchRenderer, AFailureOrAnInterruptStopsEveryWorkerAndLeavesNoPartialFile)
{
    TempFolder in, out;
    auto sources = writeSources(in, 4);
    sources.insert(sources.begin() + 2, in / "missing.flac");

    const auto failed = BatchRenderer::render(tasksInto(sources, out.path()), 2);
    EXPECT_FALSE(failed.ok);
    EXPECT_FALSE(failed.interrupted);
    EXPECT_EQ(failed.failedTask, 2u);
    EXPECT_NE(failed.error.find("missing.flac"), std::string::npos) << failed.error;
    EXPECT_FALSE(anyPendingFile(out));

    // Interrupted as the first file starts: no worker takes another file, none leaves a part.
    TempFolder stopped;
    std::atomic<bool> interrupt{false};
    std::atomic<int> started{0};
    sources.erase(sources.begin() + 2);
    const auto interrupted = BatchRenderer::render(tasksInto(sources, stopped.path()), 2, &interrupt,
                                                   [&](size_t, BatchRenderer::Event event) {
                                                       if (event == BatchRenderer::Event::Started)
                                                           ++started, interrupt.store(true);
                                                   });
    EXPECT_FALSE(interrupted.ok);
    EXPECT_TRUE(interrupted.interrupted);
    EXPECT_LE(started.load(), 2) << "a worker took a file after the interrupt";
    EXPECT_FALSE(anyPendingFile(stopped));
    EXPECT_TRUE(stopped.fileNames().empty()) << stopped.fileNames().front();

    // Nothing to render is done at once.
    EXPECT_TRUE(BatchRenderer::render({}, 4).ok);
}
