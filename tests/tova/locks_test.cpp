// Mutexes, events and semaphores between threads, and the deadline arithmetic that timed waits share.
// Labels: threads
#include "lumo/tova/event.h"
#include "lumo/tova/mutex.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/semaphore.h"
#include "support/wait.h"

#include <atomic>
#include <gtest/gtest.h>
#include <vector>

using support::wait_until;

namespace {

std::atomic<bool> clock_read;

} // namespace

// The layer's readings of the wall clock come through here.
extern "C" int gettimeofday(timeval* now, void*) noexcept
{
    timespec precise;
    clock_gettime(CLOCK_REALTIME, &precise);
    *now = {precise.tv_sec, precise.tv_nsec / 1000};
    clock_read = true;
    return 0;
}

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
        {{100, 1'000}, 1'999, 102, 0},
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
    for (const bool recursive : {false, true}) {
        tova_mutex m;
        (recursive ? tova_mutex_create : tova_mutex_create_fast)(&m);
        tova_mutex_lock(&m);
        EXPECT_EQ(recursive, tova_mutex_try_lock(&m));
        std::thread([&] { EXPECT_EQ(0, tova_mutex_try_lock(&m)); }).join();
        for (int held = 1 + recursive; held > 0; --held)
            tova_mutex_unlock(&m);
        EXPECT_EQ(1, tova_mutex_try_lock(&m));
        tova_mutex_unlock(&m);
        tova_mutex_destroy(&m);
        tova_mutex_destroy(&m);
    }
}

TEST(Event, IsConsumedByAWaitOnlyWithAutoReset)
{
    for (int auto_reset : {0, 1}) {
        tova_event e;
        tova_event_create(&e, auto_reset);
        EXPECT_EQ(0, tova_event_wait_time(&e, 3));
        for (uint32_t wait_ms : {0u, UINT32_MAX}) {
            tova_event_set(&e);
            tova_event_set(&e);
            EXPECT_EQ(1, tova_event_wait_time(&e, wait_ms));
            EXPECT_EQ(!auto_reset, tova_event_wait_time(&e, 0));
        }
        tova_event_set(&e);
        tova_event_reset(&e);
        EXPECT_EQ(0, tova_event_wait_time(&e, 0));
        tova_event_destroy(&e);
        tova_event_destroy(&e);
    }
}

TEST(Event, LetsOneWaiterThroughPerSetOrAll)
{
    for (int auto_reset : {0, 1, 0, 1, 0, 1}) { // so often that waiters are seen asleep
        tova_event e;
        tova_event_create(&e, auto_reset);
        std::atomic<int> left{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&, i] {
                if (i == 0)
                    tova_event_wait(&e);
                else
                    EXPECT_EQ(1, tova_event_wait_time(&e, 60'000));
                ++left;
            });
        for (int expected = auto_reset ? 1 : 3; expected <= 3; ++expected) {
            tova_event_set(&e);
            EXPECT_TRUE(wait_until([&] { return left == expected; })) << left;
        }
        for (std::thread& t : threads)
            t.join();
        // Had one set let two through, a later one would be left over.
        EXPECT_EQ(!auto_reset, tova_event_wait_time(&e, 0));
        tova_event_destroy(&e);
    }
}

TEST(Event, TakesTheDeadlineOfAWaitBeforeItsLock)
{
    tova_event e;
    tova_event_create(&e, 0);
    pthread_mutex_lock(&e._mutex);
    clock_read = false;
    std::thread waiter([&] { EXPECT_EQ(0, tova_event_wait_time(&e, 1)); });
    EXPECT_TRUE(wait_until([] { return clock_read.load(); }));
    pthread_mutex_unlock(&e._mutex);
    waiter.join();
    tova_event_destroy(&e);
}

TEST(Semaphore, CountsBetweenItsBoundAndNothing)
{
    tova_semaphore s;
    tova_semaphore_create(&s, 1, 2);
    EXPECT_EQ(1, tova_semaphore_set(&s));
    EXPECT_EQ(0, tova_semaphore_set(&s));
    tova_semaphore_wait(&s);
    EXPECT_EQ(1, tova_semaphore_wait_time(&s, 0));
    EXPECT_EQ(0, tova_semaphore_wait_time(&s, 3));
    tova_semaphore_destroy(&s);
    tova_semaphore_destroy(&s);
}

TEST(Semaphore, LetsOneWaiterThroughPerSet)
{
    tova_semaphore s;
    tova_semaphore_create(&s, 0, 1);
    std::atomic<int> taken{0};
    const auto take = [&](bool timed) {
        for (int i = 0; i < 10; ++i) {
            if (timed)
                tova_semaphore_wait_time(&s, 60'000);
            else
                tova_semaphore_wait(&s);
            ++taken;
        }
    };
    std::thread threads[] = {std::thread(take, false), std::thread(take, true), std::thread(take, false)};
    for (int i = 1; i <= 30; ++i) {
        EXPECT_EQ(1, tova_semaphore_set(&s));
        EXPECT_TRUE(wait_until([&] { return taken == i; })) << taken;
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(0, s._value);
    tova_semaphore_destroy(&s);
}

} // namespace
