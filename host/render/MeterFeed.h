#pragma once

#include "host/render/AudioMeter.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Host {

/// Hands a render's written blocks to its AudioMeter: at once on the writer's thread, or, when a
/// core would otherwise idle, to two threads of their own that measure a few blocks behind the
/// writer, one the levels and one the true peak (AudioMeter's two halves), so that the writer
/// never waits for the meter. The figures are the same either way: each half sees the same blocks
/// in the same order.
///
/// Threads: add and finish are called on the writer's thread; memory is a few blocks at most.
class MeterFeed
{
public:
    MeterFeed(std::unique_ptr<AudioMeter> meter, int channels, int bitDepth, bool threaded);
    ~MeterFeed();
    MeterFeed(const MeterFeed&) = delete;
    MeterFeed& operator=(const MeterFeed&) = delete;

    /// A block as written: see AudioMeter::add. The caller may reuse both buffers on return.
    void add(const double* levels, const std::int32_t* samples, std::size_t count);
    /// The figures, once every block added has been measured.
    AudioFigures finish();

private:
    static constexpr std::size_t kSlots = 4;
    struct Slot
    {
        std::vector<double> levels;
        std::vector<std::int32_t> samples;
        std::size_t count = 0;
    };

    /// The loop of the thread that measures one half (0 levels, 1 true peak).
    void measure(int half);
    /// Lets the threads measure what was added, then ends them.
    void stop();

    std::unique_ptr<AudioMeter> meter_;
    std::size_t channels_;
    int bitDepth_;
    Slot slots_[kSlots];
    std::thread threads_[2];
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t produced_ = 0;
    std::uint64_t consumed_[2] = {0, 0}; // by each half
    bool ending_ = false;
};

} // namespace Host
