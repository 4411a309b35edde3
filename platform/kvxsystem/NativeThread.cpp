#include "platform/kvxsystem/NativeThread.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>

namespace KVX::System {

KVX_DEFINE_CLASS(NativeThread, Object, "NativeThread")

tresult NativeThread::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, INativeThread)
    return Object::queryInterface(iid, object);
}

namespace {

// The longest prefix of `text` of at most `limit` bytes that does not end inside a UTF-8
// sequence.
std::string cutAtCharacter(std::string_view text, size_t limit)
{
    if (text.size() <= limit)
        return std::string(text);
    size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return std::string(text.substr(0, end));
}

cpu_set_t toCpuSet(uint64 mask)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int cpu = 0; cpu < 64; ++cpu)
        if (mask & (uint64(1) << cpu))
            CPU_SET(cpu, &set);
    return set;
}

} // namespace

NativeThread::NativeThread(std::string_view name) : name_(cutAtCharacter(name, kMaxNameBytes)) {}

NativeThread::~NativeThread()
{
    // The running thread holds a reference, so a joinable thread here has finished run() and
    // is about to exit; or this is its own last release, where it can only let itself go.
    if (joinable_)
    {
        if (isThisThread())
            pthread_detach(handle_);
        else
            pthread_join(handle_, nullptr);
    }
}

bool NativeThread::isThisThread() const
{
    // The handle names one live (or not yet joined) thread only while it runs or is joinable;
    // afterwards the system may give its value to another thread.
    return (joinable_ || state_ == State::Running) && pthread_equal(handle_, pthread_self());
}

tresult NativeThread::setPriority(int32 priority)
{
    if (priority != kPriorityLow && priority != kPriorityNormal)
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    if (state_ != State::Created)
        return kUnexpected;
    priority_ = priority;
    return kResultOk;
}

tresult NativeThread::setProcessorAffinity(uint64 mask)
{
    if (mask != 0)
    {
        cpu_set_t available;
        if (sched_getaffinity(0, sizeof(available), &available) != 0)
            return kUnexpected;
        cpu_set_t chosen = toCpuSet(mask);
        CPU_AND(&chosen, &chosen, &available);
        if (CPU_COUNT(&chosen) == 0)
            return kInvalidArgument;
    }
    std::lock_guard lock(mutex_);
    if (state_ != State::Created)
        return kUnexpected;
    affinity_ = mask;
    return kResultOk;
}

tresult NativeThread::start(IRunnable* runnable)
{
    if (!runnable)
        return kInvalidArgument;
    std::lock_guard lock(mutex_);
    if (state_ != State::Created)
        return kUnexpected;

    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return kUnexpected;
    if (affinity_ != 0)
    {
        cpu_set_t set = toCpuSet(affinity_);
        if (pthread_attr_setaffinity_np(&attributes, sizeof(set), &set) != 0)
        {
            pthread_attr_destroy(&attributes);
            return kUnexpected;
        }
    }
    runnable_ = runnable;
    retain(); // the thread's own reference, adopted in entry()
    state_ = State::Running;
    const int error = pthread_create(&handle_, &attributes, &NativeThread::entry, this);
    pthread_attr_destroy(&attributes);
    if (error != 0)
    {
        state_ = State::Created;
        runnable_.reset();
        release();
        return kUnexpected;
    }
    joinable_ = true;
    return kResultOk;
}

void* NativeThread::entry(void* self)
{
    auto thread = Ref<NativeThread>::adopt(static_cast<NativeThread*>(self));
    thread->runOnThread();
    return nullptr; // the last reference may go here, see the destructor
}

void NativeThread::runOnThread()
{
    Ref<IRunnable> runnable;
    int32 priority;
    {
        std::lock_guard lock(mutex_);
        runnable = std::move(runnable_);
        priority = priority_;
    }
    pthread_setname_np(pthread_self(), name_.c_str());
    if (priority == kPriorityLow)
    {
        // Niceness is per thread on Linux; the new thread starts with its creator's.
        const auto self = static_cast<id_t>(gettid());
        errno = 0;
        const int inherited = getpriority(PRIO_PROCESS, self);
        if (errno == 0)
            setpriority(PRIO_PROCESS, self, std::min(inherited + 10, 19));
    }

    runnable->run();

    // The runnable is let go before the end is reported, so that whoever waits finds it
    // released; its destructor may run here, on this thread.
    runnable.reset();
    {
        std::lock_guard lock(mutex_);
        state_ = State::Finished;
    }
    finished_.notify_all();
}

bool NativeThread::wait(uint32 timeoutMs)
{
    std::unique_lock lock(mutex_);
    if (isThisThread())
        return false;
    auto done = [this] { return state_ != State::Running; };
    if (timeoutMs == kWaitForever)
        finished_.wait(lock, done);
    else if (!finished_.wait_for(lock, std::chrono::milliseconds(timeoutMs), done))
        return false;
    if (joinable_)
    {
        // run() has returned; the thread only drops its reference and exits, which does not
        // touch this mutex.
        joinable_ = false;
        const pthread_t handle = handle_;
        lock.unlock();
        pthread_join(handle, nullptr);
    }
    return true;
}

tresult NativeThread::terminate()
{
    std::unique_lock lock(mutex_);
    if (isThisThread())
        return kUnexpected;
    if (state_ != State::Running)
    {
        lock.unlock();
        wait(kWaitForever); // joins a finished thread
        return kResultOk;
    }
    if (joinable_)
    {
        joinable_ = false;
        pthread_detach(handle_);
        std::fprintf(stderr, "kvxsystem: thread \"%s\" did not stop; it is left running on its own\n",
                     name_.c_str());
    }
    return kUnexpected;
}

bool NativeThread::isRunning()
{
    std::lock_guard lock(mutex_);
    return state_ == State::Running;
}

} // namespace KVX::System
