#include "host/watch/DescriptorWaker.h"

#include "framework/core/Runnable.h"
#include "framework/services/SystemServices.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Host {

using namespace KVX;

DescriptorWaker::DescriptorWaker(int fd, std::function<void()> onReadable)
    : fd_(fd), stopFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), onReadable_(std::move(onReadable)),
      owner_(makeRef<Object>())
{
    thread_ = std::thread([this] { run(); });
}

DescriptorWaker::~DescriptorWaker()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    ran_.notify_all();
    const std::uint64_t one = 1;
    if (stopFd_ >= 0)
        [[maybe_unused]] const ssize_t written = ::write(stopFd_, &one, sizeof one); // an eventfd takes it
    thread_.join();
    GetRunLoop()->cancel(owner_);
    if (stopFd_ >= 0)
        ::close(stopFd_);
}

void DescriptorWaker::run()
{
    for (;;)
    {
        pollfd ready[2] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
        // Without an eventfd the flag is looked at four times a second.
        const int got = ::poll(ready, stopFd_ >= 0 ? 2 : 1, stopFd_ >= 0 ? -1 : 250);
        std::unique_lock lock(mutex_);
        if (stopping_)
            return;
        if (got < 0 && errno != EINTR)
            return;
        if (got <= 0 || !(ready[0].revents & (POLLIN | POLLERR | POLLHUP)))
            continue;
        posted_ = true;
        lock.unlock();
        GetRunLoop()->post(Runnable::make([this] {
                               onReadable_();
                               {
                                   std::lock_guard done(mutex_);
                                   posted_ = false;
                               }
                               ran_.notify_all();
                           }),
                           owner_);
        lock.lock();
        ran_.wait(lock, [this] { return !posted_ || stopping_; });
        if (stopping_)
            return;
        if (ready[0].revents & (POLLERR | POLLHUP))
            return; // the descriptor is gone for good; the owner hears of it from its reads
    }
}

} // namespace Host
