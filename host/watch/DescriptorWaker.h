#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace Host {

/// Lets the user-interface run loop hear of a file descriptor: the run loop waits on its own
/// queue, not on descriptors, so a small thread waits on the descriptor instead and, each time it
/// is readable, posts `onReadable` to the run loop and waits for it to have run (it is expected to
/// read what is waiting) before it waits on the descriptor again.
class DescriptorWaker
{
public:
    /// Starts waiting on `fd`, which must stay open until this object is gone. `onReadable` runs
    /// on the user-interface thread.
    DescriptorWaker(int fd, std::function<void()> onReadable);
    /// Stops the thread; a call posted and not yet run is dropped. User-interface thread, not
    /// from within `onReadable`.
    ~DescriptorWaker();
    DescriptorWaker(const DescriptorWaker&) = delete;
    DescriptorWaker& operator=(const DescriptorWaker&) = delete;

private:
    void run();

    int fd_;
    int stopFd_ = -1; ///< an eventfd that ends the thread's wait
    std::function<void()> onReadable_;
    KVX::Ref<KVX::Object> owner_; ///< names the posted calls, so that they can be dropped
    std::mutex mutex_;
    std::condition_variable ran_;
    bool posted_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace Host
