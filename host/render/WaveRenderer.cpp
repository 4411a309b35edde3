#include "host/render/WaveRenderer.h"

#include "host/render/AudioMeter.h"
#include "host/render/ChannelMix.h"
#include "host/render/MeterFeed.h"
#include "host/render/PendingOutputFile.h"
#include "host/render/Resampler.h"
#include "host/render/SampleQuantizer.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <system_error>
#include <vector>

namespace Host {

namespace {

// Frames read from the source per block: the unit of progress and of cancellation.
constexpr sf_count_t kBlockFrames = 8192;

constexpr double kHighestSampleRate = 768000.0;

// What a WAV file's 32-bit size fields can describe, less room for the header.
constexpr double kLargestWaveData = 4294967295.0 - 4096.0;

struct SoundFileCloser
{
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, SoundFileCloser>;

std::string quoted(const std::filesystem::path& path)
{
    return "\"" + path.string() + "\"";
}

/// The bits of an integer source that a decoder delivers exactly, or 0 for floating-point and
/// lossy sources.
int integerBits(int format)
{
    switch (format & SF_FORMAT_SUBMASK)
    {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
        return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ALAC_16:
        return 16;
    case SF_FORMAT_ALAC_20:
        return 20;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_24:
        return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return 32;
    default:
        return 0;
    }
}

ChannelMix::Speaker speakerOf(int position)
{
    using Speaker = ChannelMix::Speaker;
    switch (position)
    {
    case SF_CHANNEL_MAP_LEFT:
    case SF_CHANNEL_MAP_FRONT_LEFT:
    case SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER:
        return Speaker::FrontLeft;
    case SF_CHANNEL_MAP_RIGHT:
    case SF_CHANNEL_MAP_FRONT_RIGHT:
    case SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER:
        return Speaker::FrontRight;
    case SF_CHANNEL_MAP_MONO:
    case SF_CHANNEL_MAP_CENTER:
    case SF_CHANNEL_MAP_FRONT_CENTER:
    case SF_CHANNEL_MAP_TOP_CENTER:
    case SF_CHANNEL_MAP_TOP_FRONT_CENTER:
        return Speaker::Centre;
    case SF_CHANNEL_MAP_LFE:
        return Speaker::LowFrequency;
    case SF_CHANNEL_MAP_REAR_LEFT:
    case SF_CHANNEL_MAP_SIDE_LEFT:
    case SF_CHANNEL_MAP_TOP_FRONT_LEFT:
    case SF_CHANNEL_MAP_TOP_REAR_LEFT:
        return Speaker::SurroundLeft;
    case SF_CHANNEL_MAP_REAR_RIGHT:
    case SF_CHANNEL_MAP_SIDE_RIGHT:
    case SF_CHANNEL_MAP_TOP_FRONT_RIGHT:
    case SF_CHANNEL_MAP_TOP_REAR_RIGHT:
        return Speaker::SurroundRight;
    case SF_CHANNEL_MAP_REAR_CENTER:
    case SF_CHANNEL_MAP_TOP_REAR_CENTER:
        return Speaker::SurroundCentre;
    default:
        return Speaker::Unknown;
    }
}

/// The speakers the file names for its channels; empty when it names none.
std::vector<ChannelMix::Speaker> speakersOf(SNDFILE* file, int channels)
{
    std::vector<int> positions(static_cast<std::size_t>(channels), SF_CHANNEL_MAP_INVALID);
    std::vector<ChannelMix::Speaker> speakers;
    if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, positions.data(),
                   static_cast<int>(positions.size() * sizeof(int))) != SF_TRUE)
        return speakers;
    for (int position : positions)
        speakers.push_back(speakerOf(position));
    return speakers;
}

int waveSubtype(int bitDepth)
{
    switch (bitDepth)
    {
    case 16:
        return SF_FORMAT_PCM_16;
    case 24:
        return SF_FORMAT_PCM_24;
    default:
        return SF_FORMAT_PCM_32;
    }
}

/// libsndfile words system errors as "System error : <text>."; people need only the text.
std::string soundFileError(SNDFILE* file)
{
    std::string text = sf_strerror(file);
    const std::string prefix = "System error : ";
    if (text.starts_with(prefix))
        text.erase(0, prefix.size());
    if (text.ends_with("."))
        text.pop_back();
    return text;
}

/// The source's blocks, one after another. With `ahead`, a thread of its own decodes up to a few
/// blocks ahead of the caller, so that decoding and the rest of the render run on two cores; the
/// blocks and their order are the same either way, and so are the output's bytes.
class BlockReader
{
public:
    BlockReader(SNDFILE* file, int channels, bool ahead) : file_(file)
    {
        // Read inline, only the first slot is used.
        for (std::size_t i = 0; i < (ahead ? kSlots : 1); ++i)
            slots_[i].data.resize(static_cast<std::size_t>(kBlockFrames * channels));
        if (ahead)
            thread_ = std::thread([this] { decode(); });
    }
    ~BlockReader()
    {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_all();
        if (thread_.joinable())
            thread_.join();
    }
    BlockReader(const BlockReader&) = delete;
    BlockReader& operator=(const BlockReader&) = delete;

    /// The next block's frames (0 at the end, -1 after a read error: see error()); `data` points
    /// at them until the next call.
    sf_count_t next(const double*& data)
    {
        if (!thread_.joinable())
        {
            Slot& slot = slots_[0];
            read(slot);
            data = slot.data.data();
            return slot.frames;
        }
        std::unique_lock lock(mutex_);
        if (holding_)
        {
            ++consumed_; // the block handed out last time is free again
            holding_ = false;
            changed_.notify_all();
        }
        changed_.wait(lock, [this] { return produced_ > consumed_; });
        Slot& slot = slots_[consumed_ % kSlots];
        holding_ = true;
        data = slot.data.data();
        return slot.frames;
    }
    const std::string& error() const { return error_; }

private:
    static constexpr std::size_t kSlots = 4;
    struct Slot
    {
        std::vector<double> data;
        sf_count_t frames = 0;
    };

    void read(Slot& slot)
    {
        slot.frames = sf_readf_double(file_, slot.data.data(), kBlockFrames);
        if (slot.frames <= 0 && sf_error(file_) != SF_ERR_NO_ERROR)
        {
            error_ = soundFileError(file_);
            slot.frames = -1;
        }
        else if (slot.frames < 0)
            slot.frames = 0;
    }

    void decode()
    {
        for (;;)
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return stopping_ || produced_ - consumed_ < kSlots; });
            if (stopping_)
                return;
            Slot& slot = slots_[produced_ % kSlots];
            lock.unlock(); // the slot is this thread's until it is counted as produced
            read(slot);
            lock.lock();
            ++produced_;
            changed_.notify_all();
            if (slot.frames <= 0)
                return;
        }
    }

    SNDFILE* file_;
    Slot slots_[kSlots];
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t produced_ = 0;
    std::uint64_t consumed_ = 0;
    bool holding_ = false;
    bool stopping_ = false;
    std::string error_; // written before the failed block is counted as produced
};

} // namespace

std::string WaveRenderer::checkTarget(const KVX::AudioFormat& target)
{
    if (target.formatCode != KVX::AudioFormat::kIntegerPCM)
        return "only integer samples are written";
    if (!std::isfinite(target.sampleRate) || target.sampleRate < 1.0 || target.sampleRate > kHighestSampleRate ||
        target.sampleRate != std::floor(target.sampleRate))
        return "the sample rate must be a whole number of hertz up to 768000";
    if (target.channelCount != 1 && target.channelCount != 2)
        return "only mono or stereo is written";
    if (target.bitDepth != 16 && target.bitDepth != 24 && target.bitDepth != 32)
        return "only 16, 24 or 32 bits per sample are written";
    return {};
}

bool WaveRenderer::render(const std::filesystem::path& sourcePath, const std::filesystem::path& outputPath,
                          RenderReport& report)
{
    report = RenderReport{};
    auto fail = [&report](std::string text) {
        report.error = std::move(text);
        return false;
    };

    if (const std::string problem = checkTarget(target_); !problem.empty())
    {
        char format[96];
        std::snprintf(format, sizeof format, "%g Hz, %d channels, %d bits", target_.sampleRate, target_.channelCount,
                      target_.bitDepth);
        return fail("Cannot render " + quoted(sourcePath) + " to " + format + ": " + problem + ".");
    }

    std::error_code status;
    if (!std::filesystem::exists(sourcePath, status))
        return fail("Cannot read " + quoted(sourcePath) + ": the file does not exist.");
    SF_INFO sourceInfo{};
    SoundFile source(sf_open(sourcePath.c_str(), SFM_READ, &sourceInfo));
    if (!source)
        return fail("Cannot read " + quoted(sourcePath) + " as audio: " + soundFileError(nullptr) + ".");

    const int sourceChannels = sourceInfo.channels;
    const int targetChannels = target_.channelCount;
    const ChannelMix mix(sourceChannels, targetChannels,
                         sourceChannels > 2 ? speakersOf(source.get(), sourceChannels)
                                            : std::vector<ChannelMix::Speaker>{});
    // Whichever side has fewer channels goes through the resampler, to spare it work.
    const bool mixFirst = sourceChannels > targetChannels;
    const bool resample = static_cast<double>(sourceInfo.samplerate) != target_.sampleRate;
    const int sourceBits = integerBits(sourceInfo.format);
    const bool exactCopy = !resample && mix.copiesOnly() && sourceBits > 0 && sourceBits <= target_.bitDepth;
    report.resampled = resample;
    report.dithered = target_.bitDepth == 16 && !exactCopy;

    const double ratio = target_.sampleRate / sourceInfo.samplerate;
    if (sourceInfo.frames > 0 &&
        static_cast<double>(sourceInfo.frames) * ratio * targetChannels * (target_.bitDepth / 8) > kLargestWaveData)
        return fail("Cannot render " + quoted(sourcePath) + ": the result would exceed the 4 GB a WAV file can hold.");

    std::unique_ptr<Resampler> resampler;
    if (resample)
    {
        std::string problem;
        resampler = Resampler::create(sourceInfo.samplerate, target_.sampleRate,
                                      mixFirst ? targetChannels : sourceChannels, target_.bitDepth, problem);
        if (!resampler)
            return fail("Cannot render " + quoted(sourcePath) + ": " + problem + ".");
    }

    PendingOutputFile pending(outputPath);
    if (std::string problem; !pending.create(problem))
        return fail("Cannot create " + quoted(outputPath) + ": " + problem + ".");
    SF_INFO outputInfo{};
    outputInfo.samplerate = static_cast<int>(target_.sampleRate);
    outputInfo.channels = targetChannels;
    outputInfo.format = SF_FORMAT_WAV | waveSubtype(target_.bitDepth);
    SoundFile output(sf_open_fd(pending.descriptor(), SFM_WRITE, &outputInfo, SF_FALSE));
    if (!output)
        return fail("Cannot write " + quoted(outputPath) + ": " + soundFileError(nullptr) + ".");

    SampleQuantizer quantizer = ditherSeed_ ? SampleQuantizer(target_.bitDepth, report.dithered, ditherSeed_)
                                            : SampleQuantizer(target_.bitDepth, report.dithered);
    // When a core would idle, the meter measures on it, behind the writer.
    std::optional<MeterFeed> meter;
    if (std::string ignored; measure_)
        if (std::unique_ptr<AudioMeter> created = AudioMeter::create(targetChannels, target_.sampleRate, ignored))
            meter.emplace(std::move(created), targetChannels, target_.bitDepth, decodeAhead_);
    // Declared after the source, so that it stops reading before the source closes on any return.
    std::optional<BlockReader> reader(std::in_place, source.get(), sourceChannels, decodeAhead_);
    std::vector<double> mixedBlock;
    std::vector<std::int32_t> samples;
    std::string writeError;

    // Takes frames at the target rate, in the source's channels unless mixed already, and
    // writes them out.
    auto write = [&](const double* frames, std::size_t count) {
        const std::size_t sampleCount = count * static_cast<std::size_t>(targetChannels);
        if (!mixFirst)
        {
            if (mixedBlock.size() < sampleCount)
                mixedBlock.resize(sampleCount);
            mix.apply(frames, mixedBlock.data(), count);
            frames = mixedBlock.data();
        }
        if (samples.size() < sampleCount)
            samples.resize(sampleCount);
        quantizer.quantize(frames, samples.data(), sampleCount);
        if (meter)
            meter->add(frames, samples.data(), count);
        if (sf_writef_int(output.get(), samples.data(), static_cast<sf_count_t>(count)) !=
            static_cast<sf_count_t>(count))
        {
            writeError = soundFileError(output.get());
            return false;
        }
        report.framesWritten += static_cast<std::int64_t>(count);
        return true;
    };
    auto writeFailed = [&](const std::string& resamplerError) {
        if (!writeError.empty())
            return fail("Cannot write " + quoted(outputPath) + ": " + writeError + ".");
        return fail("Cannot render " + quoted(sourcePath) + ": " + resamplerError + ".");
    };

    std::vector<double> premixed(mixFirst ? static_cast<std::size_t>(kBlockFrames * targetChannels) : 0);
    for (;;)
    {
        if ((cancel_ && cancel_->load(std::memory_order_relaxed)) ||
            (alsoCancel_ && alsoCancel_->load(std::memory_order_relaxed)))
            return fail("Rendering " + quoted(sourcePath) + " was cancelled.");
        const double* block = nullptr;
        const sf_count_t read = reader->next(block);
        if (read < 0)
            return fail("Cannot read " + quoted(sourcePath) + ": " + reader->error() + ".");
        if (read == 0)
            break;
        report.framesRead += read;
        if (mixFirst)
        {
            mix.apply(block, premixed.data(), static_cast<std::size_t>(read));
            block = premixed.data();
        }
        std::string problem;
        const bool written = resampler ? resampler->process(block, static_cast<std::size_t>(read), write, problem)
                                       : write(block, static_cast<std::size_t>(read));
        if (!written)
            return writeFailed(problem);
        if (progress_ && sourceInfo.frames > 0 && report.framesRead < sourceInfo.frames)
            progress_(static_cast<double>(report.framesRead) / static_cast<double>(sourceInfo.frames));
    }
    if (resampler)
    {
        std::string problem;
        if (!resampler->flush(write, problem))
            return writeFailed(problem);
    }

    // Closing writes the final header; it fails like any write when the disk is full.
    const int closeError = sf_close(output.release());
    if (closeError != SF_ERR_NO_ERROR)
        return fail("Cannot write " + quoted(outputPath) + ": " + sf_error_number(closeError) + ".");
    reader.reset();
    source.reset();
    if (std::string problem; !pending.commit(problem))
        return fail("Cannot write " + quoted(outputPath) + ": " + problem + ".");

    report.clippedSamples = quantizer.clippedSamples();
    if (meter)
        report.figures = meter->finish();
    if (progress_)
        progress_(1.0);
    return true;
}

} // namespace Host
