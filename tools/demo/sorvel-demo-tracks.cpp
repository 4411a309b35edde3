// sorvel-demo-tracks: writes three short demo tracks as a workstation would mix them down
// (48 kHz, 24-bit FLAC, stereo, tagged with title, artist, album and year), so that the host's
// render step and upload can be tried without any audio of one's own.
//
//   sorvel-demo-tracks FOLDER [SECONDS]

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int kRate = 48000;
constexpr double kPi = 3.14159265358979323846;

struct Demo
{
    const char* file;
    const char* title;
    double root; ///< the chord's lowest note in Hz
    double beat; ///< pulses per second
};

/// A soft chord on `root` with a gentle pulse, panned slowly between the channels.
bool write(const std::filesystem::path& path, const Demo& demo, double seconds, std::string& error)
{
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 2;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
    {
        error = sf_strerror(nullptr);
        return false;
    }
    sf_set_string(file, SF_STR_TITLE, demo.title);
    sf_set_string(file, SF_STR_ARTIST, "Sorvel Demo Band");
    sf_set_string(file, SF_STR_ALBUM, "Sorvel Demo");
    sf_set_string(file, SF_STR_DATE, "2026");
    const sf_count_t frames = static_cast<sf_count_t>(seconds * kRate);
    std::vector<double> block(2 * 4096);
    const double ratios[] = {1.0, 1.25, 1.5, 2.0};
    for (sf_count_t start = 0; start < frames; start += 4096)
    {
        const sf_count_t count = std::min<sf_count_t>(4096, frames - start);
        for (sf_count_t i = 0; i < count; ++i)
        {
            const double t = static_cast<double>(start + i) / kRate;
            double sample = 0;
            for (double ratio : ratios)
                sample += std::sin(2 * kPi * demo.root * ratio * t);
            const double pulse = 0.6 + 0.4 * std::sin(2 * kPi * demo.beat * t);
            const double fade = std::min({1.0, t / 0.5, (seconds - t) / 0.5});
            const double pan = 0.5 + 0.4 * std::sin(2 * kPi * 0.1 * t);
            const double value = 0.18 * sample * pulse * std::max(fade, 0.0);
            block[2 * i] = value * (1 - pan);
            block[2 * i + 1] = value * pan;
        }
        if (sf_writef_double(file, block.data(), count) != count)
        {
            error = sf_strerror(file);
            sf_close(file);
            return false;
        }
    }
    sf_close(file);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3 || std::string(argv[1]) == "--help")
    {
        std::fprintf(argc == 2 ? stdout : stderr,
                     "usage: sorvel-demo-tracks FOLDER [SECONDS]\n"
                     "Writes three tagged demo tracks (48 kHz, 24-bit FLAC, stereo) into FOLDER.\n");
        return argc == 2 ? 0 : 2;
    }
    const double seconds = argc == 3 ? std::atof(argv[2]) : 20.0;
    if (!(seconds >= 1.0 && seconds <= 3600.0))
    {
        std::fprintf(stderr, "sorvel-demo-tracks: SECONDS must lie between 1 and 3600\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    const Demo demos[] = {
        {"01 Morning Light.flac", "Morning Light", 220.0, 1.0},
        {"02 Harbour Walk.flac", "Harbour Walk", 196.0, 1.5},
        {"03 Night Drive.flac", "Night Drive", 174.6, 2.0},
    };
    for (const Demo& demo : demos)
    {
        std::string error;
        const auto path = folder / demo.file;
        if (!write(path, demo, seconds, error))
        {
            std::fprintf(stderr, "sorvel-demo-tracks: %s: %s\n", path.c_str(), error.c_str());
            return 1;
        }
        std::printf("%s\n", path.c_str());
    }
    return 0;
}
