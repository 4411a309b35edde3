#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// A one-way signal between threads: closed until open() is called, then open for good.
class Gate
{
public:
    /// Notifies with the lock held: a waiter that returns may destroy the gate at once.
    void open()
    {
        std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool isOpen()
    {
        std::lock_guard lock(mutex_);
        return open_;
    }
    /// Blocks until the gate is open.
    void pass()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return open_; });
    }
    /// Blocks until the gate is open or `timeoutMs` has passed; true when it is open. The time
    /// limit only keeps a broken test from hanging.
    bool passWithin(int timeoutMs)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};
