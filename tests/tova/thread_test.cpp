// Labels: threads
#include "lumo/tova/own/internal.h"
#include "lumo/tova/thread.h"
#include "support/wait.h"

#include <atomic>
#include <gtest/gtest.h>

namespace {

void add_one(void* counter)
{
    ++*static_cast<std::atomic<int>*>(counter);
}

TEST(Priority, MapsMinusTwoToTwoOntoTheSystemsRange)
{
    static constexpr struct
    {
        int32_t priority;
        int least, most, expected;
    } cases[] = {
        {-2, 0, 63, 0},     {-1, 0, 63, 15}, {0, 0, 63, 31}, {1, 0, 63, 47}, {2, 0, 63, 63},
        {-2, -20, 19, -20}, {0, -20, 19, 0}, {4, 0, 63, 94}}; // what is outside the range goes on along the line
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, tova::platform_priority(c.priority, c.least, c.most)) << c.priority;
}

TEST(Thread, GoesOnByItselfWhenItsRecordIsGone)
{
    std::atomic<int> calls{0};
    for (int i = 0; i < 200; ++i) {
        tova_thread t;
        tova_thread_create(&t);
        ASSERT_EQ(1, tova_thread_start(&t, add_one, &calls));
        tova_thread_detach(&t);
        memset(static_cast<void*>(&t), 0xEE, sizeof t);
    }
    EXPECT_TRUE(support::wait_until([&] { return calls == 200; }));
    EXPECT_TRUE(support::wait_until([] { return tova::living_threads == 0; }));
}

TEST(Thread, KeepsItsPriorityWhenStartedAgain)
{
    std::atomic<int> calls{0};
    tova_thread before, t;
    tova_thread_create(&before);
    tova_thread_create(&t);
    EXPECT_EQ(tova_thread_id_get(&before) + 1, tova_thread_id_get(&t));
    tova_thread_join(&t); // never started: returns
    for (int32_t priority : {2, -2, 0, 1}) {
        tova_thread_priority_set(&t, priority); // before it runs, and while it does
        ASSERT_EQ(1, tova_thread_start(&t, add_one, &calls));
        EXPECT_EQ(priority, tova_thread_priority_get(&t));
        tova_thread_priority_set(&t, -priority);
        EXPECT_EQ(-priority, tova_thread_priority_get(&t));
        tova_thread_join(&t);
    }
    EXPECT_EQ(4, calls);
    tova_thread_destroy(&t);
}

TEST(SafeCounter, LosesNothingBetweenThreads)
{
    uint32_t counter = 7, there = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int j = 0; j < 20'000; ++j)
                i % 2 ? tova_safe_increment(&counter) : tova_safe_decrement(&counter);
            if (i == 0)
                there = tova_thread_id();
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(7u, counter);
    EXPECT_NE(tova_thread_id(), there);
}

} // namespace
