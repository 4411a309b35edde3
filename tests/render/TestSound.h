#pragma once

#include "framework/services/AudioFormat.h"

#include <sndfile.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

namespace RenderTest {

/// A folder of its own under the system's temporary folder, removed with everything in it.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    /// The names of the files in the folder, hidden ones included.
    std::vector<std::string> fileNames() const;

private:
    std::filesystem::path path_;
};

/// Writes a sound file of `frames` frames; `sample(frame, channel)` gives each value at full
/// scale +-1.0. False when libsndfile refuses the format.
bool writeSound(const std::filesystem::path& path, int format, int sampleRate, int channels, std::int64_t frames,
                const std::function<double(std::int64_t frame, int channel)>& sample);

/// Writes integer samples left-justified in 32 bits, which libsndfile stores without scaling.
bool writeIntegers(const std::filesystem::path& path, int format, int sampleRate, int channels,
                   const std::vector<std::int32_t>& samples);

/// A file read back whole: its format and its samples as libsndfile's left-justified integers.
struct Sound
{
    SF_INFO info{};
    std::vector<std::int32_t> samples;
    bool ok = false;

    double value(std::int64_t frame, int channel) const
    {
        return samples[static_cast<std::size_t>(frame * info.channels + channel)] / 2147483648.0;
    }
};
Sound readSound(const std::filesystem::path& path);

/// The amplitude (full scale 1.0) of a level in decibels relative to full scale.
inline double level(double decibels)
{
    return std::pow(10.0, decibels / 20.0);
}

/// Root-mean-square level of one channel over [first, last) frames.
double rms(const Sound& sound, int channel, std::int64_t first, std::int64_t last);
/// Amplitude of the component at `frequency` in one channel over [first, last) frames.
double toneAmplitude(const Sound& sound, int channel, double frequency, std::int64_t first, std::int64_t last);

/// A file's bytes, whole.
inline std::string readBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/// A format a renderer writes: integer PCM at `sampleRate`.
inline KVX::AudioFormat format(double sampleRate, int channels, int bitDepth)
{
    KVX::AudioFormat result;
    result.sampleRate = sampleRate;
    result.channelCount = channels;
    result.bitDepth = bitDepth;
    return result;
}

/// Frame `frame` of a sine wave of `amplitude` and `frequency` at `sampleRate`, starting at `phase`.
inline double sine(double amplitude, double frequency, int sampleRate, std::int64_t frame, double phase = 0.0)
{
    return amplitude * std::sin(2.0 * std::numbers::pi * frequency * static_cast<double>(frame) / sampleRate + phase);
}

inline double decibels(double ratio)
{
    return 20.0 * std::log10(ratio);
}

} // namespace RenderTest
