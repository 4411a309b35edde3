#include "host/render/MeterFeed.h"

#include <algorithm>

namespace Host {

MeterFeed::MeterFeed(std::unique_ptr<AudioMeter> meter, int channels, int bitDepth, bool threaded)
    : meter_(std::move(meter)), channels_(static_cast<std::size_t>(channels)), bitDepth_(bitDepth)
{
    if (threaded)
        for (int half = 0; half < 2; ++half)
            threads_[half] = std::thread([this, half] { measure(half); });
}

MeterFeed::~MeterFeed() { stop(); }

void MeterFeed::stop()
{
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_)
        if (thread.joinable())
            thread.join();
}

void MeterFeed::add(const double* levels, const std::int32_t* samples, std::size_t count)
{
    if (!threads_[0].joinable())
    {
        meter_->add(levels, samples, count, bitDepth_);
        return;
    }
    std::unique_lock lock(mutex_);
    // A slot is free again once both halves have measured it.
    changed_.wait(lock, [this] { return produced_ - std::min(consumed_[0], consumed_[1]) < kSlots; });
    Slot& slot = slots_[produced_ % kSlots];
    lock.unlock(); // the slot is the writer's until it is counted as produced
    const std::size_t values = count * channels_;
    slot.levels.assign(levels, levels + values);
    slot.samples.assign(samples, samples + values);
    slot.count = count;
    lock.lock();
    ++produced_;
    changed_.notify_all();
}

void MeterFeed::measure(int half)
{
    std::uint64_t& consumed = consumed_[half];
    for (;;)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return ending_ || produced_ > consumed; });
        if (produced_ == consumed)
            return; // ending, and everything added has been measured
        const Slot& slot = slots_[consumed % kSlots];
        lock.unlock(); // the writer leaves the slot alone until both halves are done with it
        if (half == 0)
            meter_->addLevels(slot.levels.data(), slot.samples.data(), slot.count, bitDepth_);
        else
            meter_->addTruePeak(slot.samples.data(), slot.count);
        lock.lock();
        ++consumed;
        changed_.notify_all();
    }
}

AudioFigures MeterFeed::finish()
{
    stop();
    return meter_->finish();
}

} // namespace Host
