#include "framework/core/Object.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/services/ITimerTask.h"
#include "framework/core/Runnable.h"
#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace KVX;

namespace {

class CountingTimer : public Object, public ITimerTask
{
    KVX_DECLARE_CLASS(CountingTimer, Object)
public:
    void onTimer() override
    {
        ++fired;
        if (onFire)
            onFire();
    }
    KVX_FORWARD_UNKNOWN(Object)

    int fired = 0;
    std::function<void()> onFire;
};
KVX_DEFINE_CLASS(CountingTimer, Object, "CountingTimer")

tresult CountingTimer::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ITimerTask)
    return Object::queryInterface(iid, object);
}

} // namespace

TEST(RunLoop, RunsTasksFromManyThreadsOnItsOwnThreadInEachPostersOrder)
{
    IRunLoop* loop = GetRunLoop();
    ASSERT_TRUE(loop->isLoopThread());

    constexpr int kThreads = 3, kPerThread = 300;
    std::vector<std::vector<int>> seen(kThreads);
    int total = 0;
    bool allOnLoopThread = true;
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t)
        posters.emplace_back([&, t] {
            EXPECT_FALSE(loop->isLoopThread());
            for (int i = 0; i < kPerThread; ++i)
                loop->post(Runnable::make([&, t, i] {
                    seen[t].push_back(i);
                    ++total;
                    allOnLoopThread = allOnLoopThread && loop->isLoopThread();
                }));
        });
    ASSERT_TRUE(EventWait::until([&] { return total == kThreads * kPerThread; }, 5000)) << total;
    for (auto& poster : posters)
        poster.join();

    EXPECT_TRUE(allOnLoopThread);
    for (int t = 0; t < kThreads; ++t)
    {
        ASSERT_EQ(seen[t].size(), size_t(kPerThread));
        for (int i = 0; i < kPerThread; ++i)
            ASSERT_EQ(seen[t][i], i) << "thread " << t;
    }
}

TEST(RunLoop, TaskPostedWhileRunningRunsLaterAndCancelledTasksNever)
{
    IRunLoop* loop = GetRunLoop();
    std::vector<std::string> order;
    loop->post(Runnable::make([&] {
        order.push_back("outer");
        loop->post(Runnable::make([&] { order.push_back("inner"); }));
    }));
    loop->post(Runnable::make([&] { order.push_back("second"); }));
    ASSERT_TRUE(EventWait::until([&] { return order.size() == 3; }, 2000));
    EXPECT_EQ(order, (std::vector<std::string>{"outer", "second", "inner"}));

    auto owner = makeRef<CountingTimer>(); // any object serves as the owner of posted work
    IUnknown* key = static_cast<Object*>(owner.get());
    bool ran = false;
    loop->post(Runnable::make([&] { ran = true; }), key);
    EXPECT_EQ(owner->referenceCount(), 2u);
    loop->cancel(key);
    EXPECT_EQ(owner->referenceCount(), 1u);
    bool marker = false;
    loop->post(Runnable::make([&] { marker = true; }));
    ASSERT_TRUE(EventWait::until([&] { return marker; }, 2000));
    EXPECT_FALSE(ran);
    EXPECT_EQ(loop->post(nullptr), kInvalidArgument);
}

TEST(RunLoop, TimersRepeatUntilRemovedEvenFromTheirOwnCallback)
{
    IRunLoop* loop = GetRunLoop();
    auto timer = makeRef<CountingTimer>();
    timer->onFire = [&] {
        if (timer->fired == 3)
            loop->removeTimer(timer);
    };
    ASSERT_EQ(loop->addTimer(timer, 2), kResultOk);
    EXPECT_EQ(timer->referenceCount(), 2u); // the loop holds it while registered
    ASSERT_TRUE(EventWait::until([&] { return timer->fired == 3; }, 2000));
    EXPECT_EQ(timer->referenceCount(), 1u);

    // A removed timer does not fire again, while a slower one fires many of its intervals later.
    auto slower = makeRef<CountingTimer>();
    ASSERT_EQ(loop->addTimer(slower, 10), kResultOk);
    ASSERT_TRUE(EventWait::until([&] { return slower->fired == 2; }, 2000));
    loop->removeTimer(slower);
    EXPECT_EQ(timer->fired, 3);
}

TEST(RunLoop, QuitFromAnotherThreadEndsRun)
{
    IRunLoop* loop = GetRunLoop();
    std::atomic<bool> started{false};
    loop->post(Runnable::make([&] { started = true; }));
    std::thread stopper([&] {
        while (!started.load())
            std::this_thread::yield();
        loop->quit();
    });
    loop->run(); // returns only because of quit()
    stopper.join();
    EXPECT_TRUE(started.load());
}

TEST(EventWait, GivesUpAfterItsTimeout)
{
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(EventWait::until([] { return false; }, 30));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}
