#include "TestSound.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

#include <sys/stat.h>

namespace RenderTest {

namespace {

SNDFILE* openForWriting(const std::filesystem::path& path, int format, int sampleRate, int channels)
{
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    return sf_open(path.c_str(), SFM_WRITE, &info);
}

} // namespace

TempFolder::TempFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "render-test-XXXXXX").string();
    if (mkdtemp(pattern.data()))
        path_ = pattern;
}

TempFolder::~TempFolder()
{
    if (path_.empty())
        return;
    std::error_code ignored;
    // A test may have left a folder without write permission; its contents must still go.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_, ignored))
        if (entry.is_directory(ignored))
            chmod(entry.path().c_str(), 0755);
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempFolder::fileNames() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool writeSound(const std::filesystem::path& path, int format, int sampleRate, int channels, std::int64_t frames,
                const std::function<double(std::int64_t frame, int channel)>& sample)
{
    SNDFILE* file = openForWriting(path, format, sampleRate, channels);
    if (!file)
        return false;
    constexpr std::int64_t kBlock = 4096;
    std::vector<double> block(static_cast<std::size_t>(kBlock * channels));
    bool ok = true;
    for (std::int64_t start = 0; start < frames && ok; start += kBlock)
    {
        const std::int64_t count = std::min(kBlock, frames - start);
        for (std::int64_t frame = 0; frame < count; ++frame)
            for (int channel = 0; channel < channels; ++channel)
                block[static_cast<std::size_t>(frame * channels + channel)] = sample(start + frame, channel);
        ok = sf_writef_double(file, block.data(), count) == count;
    }
    return sf_close(file) == 0 && ok;
}

bool writeIntegers(const std::filesystem::path& path, int format, int sampleRate, int channels,
                   const std::vector<std::int32_t>& samples)
{
    SNDFILE* file = openForWriting(path, format, sampleRate, channels);
    if (!file)
        return false;
    const sf_count_t frames = static_cast<sf_count_t>(samples.size()) / channels;
    const bool ok = sf_writef_int(file, samples.data(), frames) == frames;
    return sf_close(file) == 0 && ok;
}

Sound readSound(const std::filesystem::path& path)
{
    Sound sound;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &sound.info);
    if (!file)
        return sound;
    sound.samples.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
    sound.ok = sf_readf_int(file, sound.samples.data(), sound.info.frames) == sound.info.frames;
    sf_close(file);
    return sound;
}

double rms(const Sound& sound, int channel, std::int64_t first, std::int64_t last)
{
    double sum = 0.0;
    for (std::int64_t frame = first; frame < last; ++frame)
        sum += sound.value(frame, channel) * sound.value(frame, channel);
    return std::sqrt(sum / static_cast<double>(last - first));
}

double toneAmplitude(const Sound& sound, int channel, double frequency, std::int64_t first, std::int64_t last)
{
    const double step = 2.0 * std::numbers::pi * frequency / sound.info.samplerate;
    double inPhase = 0.0;
    double quadrature = 0.0;
    for (std::int64_t frame = first; frame < last; ++frame)
    {
        inPhase += sound.value(frame, channel) * std::cos(step * static_cast<double>(frame));
        quadrature += sound.value(frame, channel) * std::sin(step * static_cast<double>(frame));
    }
    return 2.0 * std::hypot(inPhase, quadrature) / static_cast<double>(last - first);
}

} // namespace RenderTest
