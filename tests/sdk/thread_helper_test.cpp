// Labels: threads
#include "AnalyticsSDK/ThreadHelper.h"

#include <gtest/gtest.h>
#include <new>

#include "support/wait.h"

using support::wait_until;

namespace {

class Worker : public AnalyticsSDK::ThreadHelper
{
public:
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
    void BeginACycle()
    {
        hold = true;
        Init("worker");
        Wake();
        ASSERT_TRUE(wait_until([this] { return inside.load(); }));
    }
    using ThreadHelper::m_nWaitInterval;
    using ThreadHelper::Wake;

    std::atomic<int> started{0};
    std::atomic<bool> hold{false}, inside{false}, fail{false};
};

} // namespace

TEST(WorkerThread, WorksAtEveryIntervalWhateverBecomesOfACycle)
{
    Worker patient, quick, never;
    EXPECT_EQ(patient.m_nWaitInterval, 30'000u) << "unless told otherwise";
    quick.m_nWaitInterval = 1;
    quick.fail = true; // every cycle runs out of memory
    patient.Init("patient");
    quick.Init("quick");
    EXPECT_TRUE(wait_until([&] { return quick.started >= 3; }));
    EXPECT_EQ(patient.started, 0);
    patient.m_nWaitInterval = 1; // counts from the next wait
    patient.Wake();
    EXPECT_TRUE(wait_until([&] { return patient.started >= 3; }));
    EXPECT_FALSE(never.IsShuttingDown());
    never.Close(); // without having run
    EXPECT_TRUE(never.IsShuttingDown());
}

TEST(WorkerThread, MergesWakesDuringACycle)
{
    Worker worker;
    worker.BeginACycle();
    worker.Wake();
    worker.Wake();
    worker.hold = false;
    ASSERT_TRUE(wait_until([&] { return worker.started == 2 && !worker.inside; }));
    worker.Close();
    EXPECT_EQ(worker.started, 2);
}

TEST(WorkerThread, FinishesTheCycleInHandForItsFirstCloser)
{
    Worker worker;
    worker.BeginACycle();
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
