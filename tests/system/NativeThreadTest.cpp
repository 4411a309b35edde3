#include "Gate.h"

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IRunnable.h"
#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;

namespace {

class TestRunnable : public Object, public IRunnable
{
    KVX_DECLARE_CLASS(TestRunnable, Object)
public:
    explicit TestRunnable(std::function<void()> body, Gate* destroyed = nullptr)
        : body_(std::move(body)), destroyed_(destroyed)
    {
    }
    ~TestRunnable() override
    {
        if (destroyed_)
            destroyed_->open();
    }
    void run() override { body_(); }
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::function<void()> body_;
    Gate* destroyed_;
};
KVX_DEFINE_CLASS(TestRunnable, Object, "TestRunnable")

tresult TestRunnable::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IRunnable)
    return Object::queryInterface(iid, object);
}

Ref<INativeThread> createThread(const char* name)
{
    return Ref<INativeThread>::adopt(CreateNativeThread(name));
}

// Runs `body` on a new thread called `name`, set up with the priority and affinity, and waits for
// its end.
void runOnThread(const char* name, std::function<void()> body, int32 priority = INativeThread::kPriorityNormal,
                 uint64 affinity = 0)
{
    auto thread = createThread(name);
    ASSERT_TRUE(thread);
    ASSERT_EQ(thread->setPriority(priority), kResultOk);
    ASSERT_EQ(thread->setProcessorAffinity(affinity), kResultOk);
    auto runnable = makeRef<TestRunnable>(std::move(body));
    ASSERT_EQ(thread->start(runnable), kResultOk);
    ASSERT_TRUE(thread->wait(5000));
}

std::string currentThreadName()
{
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

// A thread whose runnable, once started, blocks until `release` opens. It is released and waited
// for at the end, so that a failed check cannot leave it blocked on a gate that is gone.
struct HeldThread
{
    explicit HeldThread(const char* name, Gate* destroyed = nullptr)
        : thread(createThread(name)), runnable(makeRef<TestRunnable>([this] { hold(); }, destroyed))
    {
    }
    ~HeldThread()
    {
        release.open();
        if (thread)
            thread->wait(5000);
    }
    // Starts the thread and waits until run() has begun.
    bool start() { return thread->start(runnable) == kResultOk && started.passWithin(5000); }
    void hold()
    {
        started.open();
        release.pass();
    }

    Gate started, release;
    Ref<INativeThread> thread;
    Ref<TestRunnable> runnable;
};

} // namespace

TEST(NativeThread, RunsOnAThreadOfItsOwnWithTheNameCutToFifteenBytesAtACharacterBoundary)
{
    struct Case
    {
        const char* given;
        const char* expected;
    };
    for (const Case& c :
         {Case{"Short", "Short"}, Case{"A very long thread name", "A very long thr"},
          Case{"12345678901234\u00e9", "12345678901234"},
          Case{"\u00dcbertr\u00e4ger", "\u00dcbertr\u00e4ger"}, Case{"123456789012345", "123456789012345"}})
    {
        std::string seen;
        pid_t ranOn = gettid();
        runOnThread(c.given, [&] {
            seen = currentThreadName();
            ranOn = gettid();
        });
        EXPECT_EQ(seen, c.expected) << c.given;
        EXPECT_NE(ranOn, gettid());
    }
    EXPECT_EQ(CreateNativeThread(nullptr), nullptr);
    EXPECT_EQ(CreateNativeThread(""), nullptr);
}

TEST(NativeThread, HoldsTheRunnableWhileItRunsAndTerminateLetsItGoButStillFollowsIt)
{
    HeldThread held("Stuck Worker");
    ASSERT_TRUE(held.start());
    EXPECT_TRUE(held.thread->isRunning());
    EXPECT_EQ(held.runnable->referenceCount(), 2u) << "the thread holds the runnable while it runs";
    EXPECT_EQ(held.thread->start(held.runnable), kUnexpected) << "a thread starts once";

    testing::internal::CaptureStderr();
    const tresult result = held.thread->terminate();
    const std::string reported = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, kUnexpected) << "a running thread is never killed";
    EXPECT_NE(reported.find("\"Stuck Worker\""), std::string::npos) << reported;
    EXPECT_TRUE(held.thread->isRunning());
    EXPECT_FALSE(held.thread->wait(20)) << "the runnable is still blocked";

    held.release.open();
    ASSERT_TRUE(held.thread->wait(5000)) << "a thread let go can still be waited for";
    EXPECT_FALSE(held.thread->isRunning());
    EXPECT_EQ(held.runnable->referenceCount(), 1u) << "released as soon as run() returned";
    EXPECT_TRUE(held.thread->wait(0)) << "waiting again for a finished thread";
    EXPECT_EQ(held.thread->start(held.runnable), kUnexpected);
    EXPECT_EQ(held.thread->terminate(), kResultOk) << "nothing left to stop";
}

TEST(NativeThread, RefusesBadArgumentsAndSettingsAfterStart)
{
    auto idle = createThread("Idle");
    EXPECT_EQ(idle->start(nullptr), kInvalidArgument);
    EXPECT_FALSE(idle->isRunning());
    EXPECT_TRUE(idle->wait(0)) << "a thread that never started has nothing to wait for";
    EXPECT_EQ(idle->terminate(), kResultOk);

    HeldThread held("Settings");
    EXPECT_EQ(held.thread->setPriority(-1), kInvalidArgument);
    EXPECT_EQ(held.thread->setPriority(2), kInvalidArgument) << "no level above the creator's";
    EXPECT_EQ(held.thread->setPriority(INativeThread::kPriorityLow), kResultOk);
    EXPECT_EQ(held.thread->setProcessorAffinity(0), kResultOk);
    ASSERT_TRUE(held.start());
    EXPECT_EQ(held.thread->setPriority(INativeThread::kPriorityNormal), kUnexpected);
    EXPECT_EQ(held.thread->setProcessorAffinity(0), kUnexpected);
    held.release.open();
    ASSERT_TRUE(held.thread->wait(5000));
    EXPECT_EQ(held.thread->setPriority(INativeThread::kPriorityNormal), kUnexpected);
}

TEST(NativeThread, LowPriorityIsTenStepsNicerThanTheCreatorAndNormalKeepsItsPriority)
{
    errno = 0;
    const int creator = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
    ASSERT_EQ(errno, 0);
    int low = -100, normal = -100;
    runOnThread("Low", [&] { low = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); },
                INativeThread::kPriorityLow);
    runOnThread("Normal", [&] { normal = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); },
                INativeThread::kPriorityNormal);
    EXPECT_EQ(low, std::min(creator + 10, 19));
    EXPECT_EQ(normal, creator);
}

TEST(NativeThread, ProcessorAffinityPinsTheThreadAndRefusesUnavailableProcessors)
{
    cpu_set_t available;
    ASSERT_EQ(sched_getaffinity(0, sizeof(available), &available), 0);
    int first = -1, missing = -1;
    for (int cpu = 0; cpu < 64; ++cpu)
    {
        if (CPU_ISSET(cpu, &available) && first < 0)
            first = cpu;
        if (!CPU_ISSET(cpu, &available) && missing < 0)
            missing = cpu;
    }
    ASSERT_GE(first, 0);

    cpu_set_t seen;
    CPU_ZERO(&seen);
    runOnThread("Pinned", [&] { sched_getaffinity(0, sizeof(seen), &seen); }, INativeThread::kPriorityNormal,
                uint64(1) << first);
    EXPECT_EQ(CPU_COUNT(&seen), 1);
    EXPECT_TRUE(CPU_ISSET(first, &seen));
    if (missing >= 0)
    {
        EXPECT_EQ(createThread("Nowhere")->setProcessorAffinity(uint64(1) << missing), kInvalidArgument);
    }
}

TEST(NativeThread, KeepsRunningWhenItsOwnerLetsGoAndReleasesTheRunnableAtTheEnd)
{
    Gate destroyed;
    HeldThread held("Orphan", &destroyed);
    ASSERT_TRUE(held.start());
    held.thread.reset();
    held.runnable.reset();
    EXPECT_FALSE(destroyed.isOpen()) << "the thread still holds the runnable";
    held.release.open();
    EXPECT_TRUE(destroyed.passWithin(5000)) << "the thread drops the runnable when run() returns";
}

TEST(NativeThread, AThreadCannotWaitForOrTerminateItself)
{
    auto thread = createThread("Self");
    bool waited = true;
    tresult terminated = kResultOk;
    auto runnable = makeRef<TestRunnable>([&] {
        waited = thread->wait(INativeThread::kWaitForever); // would never return if it blocked
        terminated = thread->terminate();
    });
    ASSERT_EQ(thread->start(runnable), kResultOk);
    ASSERT_TRUE(thread->wait(5000));
    EXPECT_FALSE(waited);
    EXPECT_EQ(terminated, kUnexpected);
}

TEST(NativeThread, ManyWaitersAllSeeTheEnd)
{
    HeldThread held("Awaited");
    ASSERT_TRUE(held.start());
    constexpr int kWaiters = 4;
    std::vector<int> results(kWaiters, -1);
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&, i] { results[i] = held.thread->wait(5000) ? 1 : 0; });
    held.release.open();
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(results, std::vector<int>(kWaiters, 1));
    EXPECT_FALSE(held.thread->isRunning());
}
