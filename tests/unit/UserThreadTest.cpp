#include "framework/core/Object.h"
#include "framework/threading/AbstractProgressNotify.h"
#include "framework/threading/UserThread.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;
using namespace KVX::Threading;

namespace {

/// Works until it is asked to stop, or, when stubborn, until the test lets it go.
class Worker : public Object, public UserThread
{
public:
    Worker() : UserThread("User Thread") {}

    void threadEntry() override
    {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        seenName = name;
        started.store(true);
        while (stubborn ? !released.load() : !shouldTerminate())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        finished.store(true);
    }

    bool stubborn = false;
    std::string seenName;
    std::atomic<bool> started{false};
    std::atomic<bool> released{false};
    std::atomic<bool> finished{false};
};

bool waitFor(const std::atomic<bool>& flag)
{
    for (int i = 0; i < 5000 && !flag.load(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return flag.load();
}

/// Records the reports that pass the throttle.
class Reports : public Object, public AbstractProgressNotify
{
public:
    Reports() : AbstractProgressNotify(std::chrono::milliseconds(50)) {}
    void progressChanged(const ProgressState& state) override { values.push_back(state.value); }
    void newTransfer() { beginTransfer(); }
    KVX_FORWARD_UNKNOWN(Object)

    std::vector<double> values;
};

tresult Reports::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IProgressNotify)
    return Object::queryInterface(iid, object);
}

} // namespace

TEST(UserThread, RunsItsEntryOnANamedThreadAndStopsWhenAsked)
{
    auto worker = makeRef<Worker>();
    ASSERT_TRUE(worker->startThread());
    EXPECT_TRUE(worker->hasThread());
    EXPECT_FALSE(worker->startThread()) << "one thread at a time";
    ASSERT_TRUE(waitFor(worker->started));
    EXPECT_EQ(worker->seenName, "User Thread");
    EXPECT_FALSE(worker->finished.load());

    EXPECT_TRUE(worker->stopThread(1000)) << "it ended by itself once marked as stopping";
    EXPECT_TRUE(worker->finished.load());
    EXPECT_FALSE(worker->hasThread());
    EXPECT_TRUE(worker->stopThread(1000)) << "stopping a stopped thread is fine";

    // It can run again, and the stop mark of the last run is forgotten.
    ASSERT_TRUE(worker->startThread());
    ASSERT_TRUE(waitFor(worker->started));
    EXPECT_FALSE(worker->shouldTerminate());
    EXPECT_TRUE(worker->stopThread(1000));
}

TEST(UserThread, AThreadThatDoesNotEndInTimeIsLetGoAfterTheWait)
{
    auto worker = makeRef<Worker>();
    worker->stubborn = true;
    ASSERT_TRUE(worker->startThread());
    ASSERT_TRUE(waitFor(worker->started));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(worker->stopThread(100));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(100)) << "it waited first";
    EXPECT_FALSE(worker->hasThread());
    // The thread is let go, not killed: it still ends by itself, with the owner alive.
    worker->released.store(true);
    EXPECT_TRUE(waitFor(worker->finished));
}

TEST(AbstractProgressNotify, ThrottlesReportsButAlwaysPassesTheFirstAndTheLast)
{
    auto reports = makeRef<Reports>();
    IProgressNotify* notify = reports;
    for (int i = 0; i < 10000; ++i)
        notify->updateProgress({i / 10000.0, 0});
    notify->updateProgress({1.0, 0});
    ASSERT_GE(reports->values.size(), 2u);
    EXPECT_LT(reports->values.size(), 100u) << "a fast transfer does not flood the user interface";
    EXPECT_EQ(reports->values.front(), 0.0);
    EXPECT_EQ(reports->values.back(), 1.0);

    // A new transfer's first report passes at once, however soon it comes.
    reports->values.clear();
    reports->newTransfer();
    notify->updateProgress({0.01, 0});
    EXPECT_EQ(reports->values.size(), 1u);

    EXPECT_FALSE(notify->isCanceled());
    std::thread([&] { reports->cancel(); }).join(); // the user-interface thread cancels
    EXPECT_TRUE(notify->isCanceled());
    reports->resetProgress();
    EXPECT_FALSE(notify->isCanceled());
}
