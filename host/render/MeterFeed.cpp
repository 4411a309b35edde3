#include "host/render/MeterFeed.h"

#include <algorithm>

namespace Host {

MeterFeed::MeterFeed(std::unique_ptr<AudioMeter> meter, int channels, int bitDepth, bool threaded)
    : meter_(std::move(meter)), channels_(static_cast<std::size_t>(channels)), bitDepth_(bitDepth)
{
    if (threaded)
        thread_ = std::thread([this] { measure(); });
}

MeterFeed::~MeterFeed()
{
    {
        std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void MeterFeed::add(const double* levels, const std::int32_t* samples, std::size_t count)
{
    if (!thread_.joinable())
    {
        meter_->add(levels, samples, count, bitDepth_);
        return;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return produced_ - consumed_ < kSlots; });
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

void MeterFeed::measure()
{
    for (;;)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return ending_ || produced_ > consumed_; });
        if (produced_ == consumed_)
            return; // ending, and everything added has been measured
        Slot& slot = slots_[consumed_ % kSlots];
        lock.unlock(); // the slot is this thread's until it is counted as consumed
        meter_->add(slot.levels.data(), slot.samples.data(), slot.count, bitDepth_);
        lock.lock();
        ++consumed_;
        changed_.notify_all();
    }
}

AudioFigures MeterFeed::finish()
{
    if (thread_.joinable())
    {
        {
            std::lock_guard lock(mutex_);
            ending_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    return meter_->finish();
}

} // namespace Host
