// Labels: threads
#include "lumo/tova/global_event.h"
#include "support/death.h"

#include <unistd.h>

namespace {

// A name of its own for each test run, and no semaphore left behind whatever happens.
struct GlobalEvent : testing::Test
{
    std::string name =
        "tova-test-" + std::to_string(getpid()) + "-" + testing::UnitTest::GetInstance()->current_test_info()->name();
    tova_global_event event{};
    ~GlobalEvent() override { tova_global_event_destroy(&event); }
};

TEST_F(GlobalEvent, RemembersEverySetUntilAWaitTakesIt)
{
    for (int times = 0; times < 2; ++times)
        EXPECT_EQ(0, tova_global_event_exists(name.c_str())); // asking leaves nothing behind
    ASSERT_EQ(1, tova_global_event_create(&event, name.c_str()));
    for (int i = 0; i < 2; ++i)
        tova_global_event_set(&event);
    tova_global_event again{};
    ASSERT_EQ(1, tova_global_event_create(&again, name.c_str())); // as it stands
    tova_global_event_wait(&event);
    EXPECT_EQ(1, tova_global_event_try_wait(&again));
    EXPECT_EQ(0, tova_global_event_try_wait(&event));
    EXPECT_EQ(1, tova_global_event_exists(name.c_str()));
    // Destroyed here, the name is gone, and whoever holds the event keeps it.
    for (int times = 0; times < 2; ++times)
        tova_global_event_destroy(&again);
    EXPECT_EQ(0, tova_global_event_exists(name.c_str()));
    tova_global_event_set(&event);
    EXPECT_EQ(1, tova_global_event_try_wait(&event));
}

TEST_F(GlobalEvent, ThatTheSystemRefusesCountsAsExisting)
{
    const std::string longest(1022, 'n'); // fits the record, not Linux
    EXPECT_EQ(0, tova_global_event_create(&event, longest.c_str()));
    EXPECT_EQ(1, tova_global_event_exists(longest.c_str()));
    EXPECT_ASSERTION(tova_global_event_set(&event), "inc/lumo/tova/global_event", "ge->_sem != (sem_t *) SEM_FAILED");
}

} // namespace
