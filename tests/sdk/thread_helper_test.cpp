#include "AnalyticsSDK/ThreadHelper.h"

#include <gtest/gtest.h>
#include <new>

#include "support/child.h"
#include "support/wait.h"

using support::wait_until;

namespace {

constexpr uint32_t forEver_ms = 3'600'000;

class Worker : public AnalyticsSDK::ThreadHelper
{
public:
    explicit Worker(uint32_t interval_ms) { m_nWaitInterval = interval_ms; }
    ~Worker() override { Close(); }
    void Process() override
    {
        ++started;
        inside = true;
        wait_until([this] { return !hold; });
        inside = false;
        if (fail)
            throw std::bad_alloc();
    }
    using ThreadHelper::m_nWaitInterval;
    using ThreadHelper::Wake;

    std::atomic<int> started{0};
    std::atomic<bool> hold{false}, inside{false}, fail{false};
};

} // namespace

TEST(ThreadsWorker, WaitsHalfAMinuteUnlessToldOtherwise)
{
    struct : AnalyticsSDK::ThreadHelper
    {
        void Process() override {}
        uint32_t interval() const { return m_nWaitInterval; }
    } worker;
    EXPECT_EQ(worker.interval(), 30'000u);
}

TEST(ThreadsWorker, WaitsFirstAndWorksAtEveryInterval)
{
    Worker patient(forEver_ms), quick(1);
    patient.Init("patient");
    quick.Init("quick");
    EXPECT_TRUE(wait_until([&] { return quick.started >= 3; }));
    EXPECT_EQ(patient.started, 0);
}

TEST(ThreadsWorker, WorksAtOnceWhenWokenAndMergesWakesDuringACycle)
{
    Worker worker(forEver_ms);
    worker.hold = true;
    worker.Init("worker");
    worker.Wake();
    ASSERT_TRUE(wait_until([&] { return worker.inside.load(); }));
    worker.Wake();
    worker.Wake();
    worker.hold = false;
    ASSERT_TRUE(wait_until([&] { return worker.started == 2 && !worker.inside; }));
    worker.Close();
    EXPECT_EQ(worker.started, 2);
}

TEST(ThreadsWorker, TakesANewIntervalFromItsNextWait)
{
    Worker worker(forEver_ms);
    worker.Init("worker");
    worker.m_nWaitInterval = 1;
    worker.Wake();
    EXPECT_TRUE(wait_until([&] { return worker.started >= 3; }));
}

TEST(ThreadsWorker, GoesOnAfterACycleThatRanOutOfMemory)
{
    Worker worker(1);
    worker.fail = true;
    worker.Init("worker");
    EXPECT_TRUE(wait_until([&] { return worker.started >= 3; }));
}

TEST(ThreadsWorker, StopsAtOnceWhileItWaitsAndCanBeClosedTwice)
{
    Worker worker(forEver_ms);
    worker.Init("worker");
    EXPECT_FALSE(worker.IsShuttingDown());
    worker.Close();
    EXPECT_TRUE(worker.IsShuttingDown());
    worker.Close();
    EXPECT_EQ(worker.started, 0);
}

TEST(ThreadsWorker, CanBeClosedWithoutEverHavingRun)
{
    Worker worker(forEver_ms);
    worker.Close();
    EXPECT_TRUE(worker.IsShuttingDown());
}

TEST(ThreadsWorker, FinishesTheCycleInHandWhileASecondCloserDoesNotWait)
{
    Worker worker(forEver_ms);
    worker.hold = true;
    worker.Init("worker");
    worker.Wake();
    ASSERT_TRUE(wait_until([&] { return worker.inside.load(); }));
    std::atomic<bool> closed{false};
    std::thread closer([&] {
        worker.Close();
        closed = true;
    });
    ASSERT_TRUE(wait_until([&] { return worker.IsShuttingDown(); }));
    worker.Close(); // the other thread's stop: returns although the worker is busy
    EXPECT_TRUE(worker.inside);
    EXPECT_FALSE(closed);
    worker.hold = false;
    closer.join();
    EXPECT_FALSE(worker.inside);
    EXPECT_EQ(worker.started, 1) << "no cycle after the stop request";
}

TEST(ThreadsWorker, IsGoneInAForkedChildWhichCanCloseAndDestroyItsCopy)
{
    auto worker = std::make_unique<Worker>(forEver_ms);
    worker->Init("worker");
    support::Child child([&] {
        worker->Close();
        worker.reset();
        return 0;
    });
    EXPECT_TRUE(child.wait());
    EXPECT_EQ(child.status(), 0) << child.errors();
    EXPECT_FALSE(worker->IsShuttingDown()) << "the parent's runs on";
}
