#include "host/render/Resampler.h"

#include <soxr.h>

namespace Host {

namespace {

// Output room per call, in frames; soxr holds back what does not fit until the next call.
constexpr std::size_t kOutputFrames = 16384;

} // namespace

std::unique_ptr<Resampler> Resampler::create(double inputRate, double outputRate, int channels, int targetBitDepth,
                                             std::string& error)
{
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(targetBitDepth <= 16 ? SOXR_HQ : SOXR_VHQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t failure = nullptr;
    soxr_t resampler =
        soxr_create(inputRate, outputRate, static_cast<unsigned>(channels), &failure, &io, &quality, &runtime);
    if (failure || !resampler)
    {
        error = std::string("the resampler refused the conversion (") + soxr_strerror(failure) + ")";
        if (resampler)
            soxr_delete(resampler);
        return nullptr;
    }
    return std::unique_ptr<Resampler>(new Resampler(resampler, channels, kOutputFrames));
}

Resampler::Resampler(soxr* resampler, int channels, std::size_t outputCapacity)
    : resampler_(resampler), channels_(channels), output_(outputCapacity * static_cast<std::size_t>(channels)),
      outputCapacity_(outputCapacity)
{
}

Resampler::~Resampler()
{
    soxr_delete(resampler_);
}

bool Resampler::process(const double* samples, std::size_t frames, const Sink& sink, std::string& error)
{
    std::size_t consumed = 0;
    std::size_t produced = 0;
    do
    {
        std::size_t used = 0;
        const soxr_error_t failure = soxr_process(resampler_, samples + consumed * channels_, frames - consumed, &used,
                                                  output_.data(), outputCapacity_, &produced);
        if (failure)
        {
            error = std::string("resampling failed (") + soxr_strerror(failure) + ")";
            return false;
        }
        if (used == 0 && produced == 0 && consumed < frames)
        {
            error = "the resampler took no input";
            return false;
        }
        consumed += used;
        if (produced > 0 && !sink(output_.data(), produced))
            return false;
        // A full output block may leave more converted frames waiting inside soxr.
    } while (consumed < frames || produced == outputCapacity_);
    return true;
}

bool Resampler::flush(const Sink& sink, std::string& error)
{
    for (;;)
    {
        std::size_t produced = 0;
        const soxr_error_t failure =
            soxr_process(resampler_, nullptr, 0, nullptr, output_.data(), outputCapacity_, &produced);
        if (failure)
        {
            error = std::string("resampling failed (") + soxr_strerror(failure) + ")";
            return false;
        }
        if (produced == 0)
            return true;
        if (!sink(output_.data(), produced))
            return false;
    }
}

} // namespace Host
