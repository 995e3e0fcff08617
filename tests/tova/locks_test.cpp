// Mutexes, events and semaphores between threads, and the deadline arithmetic that timed waits share.
#include "lumo/tova/event.h"
#include "lumo/tova/mutex.h"
#include "lumo/tova/platform/internal.h"
#include "lumo/tova/semaphore.h"
#include "support/wait.h"

#include <atomic>
#include <gtest/gtest.h>
#include <vector>

using support::wait_until;

namespace {

TEST(Deadline, AddsMillisecondsToTheWallClockWithCarry)
{
    static const struct
    {
        timeval now;
        uint32_t wait_ms;
        time_t seconds;
        long nanoseconds;
    } cases[] = {
        {{100, 0}, 0, 100, 0},
        {{100, 250'000}, 0, 100, 250'000'000},
        {{100, 0}, 1'999, 101, 999'000'000},
        {{100, 1'000}, 1'999, 102, 0},
        {{100, 999'999}, 999, 101, 998'999'000},
        {{100, 999'999}, 1'001, 102, 999'000},
        {{0, 0}, UINT32_MAX, 4'294'967, 295'000'000},
    };
    for (const auto& c : cases) {
        const timespec got = tova::deadline_after(c.now, c.wait_ms);
        EXPECT_EQ(c.seconds, got.tv_sec) << c.wait_ms;
        EXPECT_EQ(c.nanoseconds, got.tv_nsec) << c.wait_ms;
    }
}

TEST(Mutex, IsTakenAgainByItsHolderOnlyWhenRecursive)
{
    tova_mutex recursive, fast;
    tova_mutex_create(&recursive);
    tova_mutex_create_fast(&fast);
    tova_mutex_lock(&recursive);
    tova_mutex_lock(&fast);
    EXPECT_EQ(1, tova_mutex_try_lock(&recursive));
    EXPECT_EQ(0, tova_mutex_try_lock(&fast));
    std::thread other([&] {
        EXPECT_EQ(0, tova_mutex_try_lock(&recursive));
        EXPECT_EQ(0, tova_mutex_try_lock(&fast));
    });
    other.join();
    tova_mutex_unlock(&fast);
    tova_mutex_unlock(&recursive);
    tova_mutex_unlock(&recursive);
    std::thread now_free([&] {
        EXPECT_EQ(1, tova_mutex_try_lock(&recursive));
        tova_mutex_unlock(&recursive);
    });
    now_free.join();
    for (tova_mutex* m : {&recursive, &fast}) {
        tova_mutex_destroy(m);
        tova_mutex_destroy(m);
    }
}

TEST(Mutex, ExcludesOtherThreads)
{
    for (auto create : {tova_mutex_create, tova_mutex_create_fast}) {
        tova_mutex m;
        create(&m);
        int plain = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                for (int j = 0; j < 20'000; ++j) {
                    tova_mutex_lock(&m);
                    ++plain;
                    tova_mutex_unlock(&m);
                }
            });
        for (std::thread& t : threads)
            t.join();
        EXPECT_EQ(80'000, plain);
        tova_mutex_destroy(&m);
    }
}

TEST(Event, IsConsumedByAWaitOnlyWithAutoReset)
{
    for (int auto_reset : {0, 1}) {
        tova_event e;
        tova_event_create(&e, auto_reset);
        EXPECT_EQ(0, tova_event_wait_time(&e, 0));
        EXPECT_EQ(0, tova_event_wait_time(&e, 3));
        tova_event_set(&e);
        tova_event_set(&e);
        EXPECT_EQ(1, tova_event_wait_time(&e, 0));
        EXPECT_EQ(!auto_reset, tova_event_wait_time(&e, 0));
        tova_event_set(&e);
        tova_event_wait(&e);
        EXPECT_EQ(!auto_reset, tova_event_wait_time(&e, UINT32_MAX * !auto_reset));
        tova_event_set(&e);
        tova_event_reset(&e);
        EXPECT_EQ(0, tova_event_wait_time(&e, 0));
        tova_event_destroy(&e);
        tova_event_destroy(&e);
    }
}

// Three threads that wait for one event and count themselves as they leave.
struct three_waiters
{
    tova_event e;
    std::atomic<int> left{0};
    std::vector<std::thread> threads;

    explicit three_waiters(int auto_reset)
    {
        tova_event_create(&e, auto_reset);
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([this, i] {
                if (i == 0)
                    tova_event_wait(&e);
                else
                    EXPECT_EQ(1, tova_event_wait_time(&e, 60'000));
                ++left;
            });
    }
    ~three_waiters() { tova_event_destroy(&e); }
    void join()
    {
        for (std::thread& t : threads)
            t.join();
    }
};

TEST(Event, LetsExactlyOneWaiterThroughPerSetWithAutoReset)
{
    three_waiters waiters(1);
    for (int expected = 1; expected <= 3; ++expected) {
        tova_event_set(&waiters.e);
        EXPECT_TRUE(wait_until([&] { return waiters.left == expected; })) << waiters.left;
    }
    waiters.join();
    // Had one set let two through, a later one would be left over.
    EXPECT_EQ(0, tova_event_wait_time(&waiters.e, 0));
}

TEST(Event, LetsAllWaitersThroughAndStaysSetWithManualReset)
{
    three_waiters waiters(0);
    tova_event_set(&waiters.e);
    waiters.join();
    EXPECT_EQ(3, waiters.left);
    EXPECT_EQ(1, tova_event_wait_time(&waiters.e, 0));
}

TEST(Semaphore, CountsUpToItsBoundAndDownToNothing)
{
    tova_semaphore s;
    tova_semaphore_create(&s, 1, 2);
    EXPECT_EQ(1, tova_semaphore_set(&s));
    EXPECT_EQ(0, tova_semaphore_set(&s));
    EXPECT_EQ(2, s._value);
    tova_semaphore_wait(&s);
    EXPECT_EQ(1, tova_semaphore_wait_time(&s, 0));
    EXPECT_EQ(0, tova_semaphore_wait_time(&s, 0));
    EXPECT_EQ(0, tova_semaphore_wait_time(&s, 3));
    tova_semaphore_destroy(&s);
    tova_semaphore_destroy(&s);
}

TEST(Semaphore, LetsAsManyWaitersThroughAsItWasSet)
{
    tova_semaphore s;
    tova_semaphore_create(&s, 0, 1000);
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int j = 0; j < 250; ++j, ++taken)
                i % 2 ? tova_semaphore_wait(&s) : static_cast<void>(tova_semaphore_wait_time(&s, 60'000));
        });
    for (int i = 1; i <= 1000; ++i) {
        EXPECT_EQ(1, tova_semaphore_set(&s));
        EXPECT_LE(taken, i);
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(0, s._value);
    EXPECT_EQ(0, tova_semaphore_wait_time(&s, 0));
    tova_semaphore_destroy(&s);
}

} // namespace
