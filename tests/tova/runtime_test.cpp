#include "lumo/tova/platform/internal.h"
#include "lumo/tova/runtime.h"
#include "lumo/tova/thread.h"
#include "support/child.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::pair<int32_t, std::string>> logged;

void remember(int32_t level, const char* message)
{
    logged.emplace_back(level, message);
}

TEST(Log, HandsWholeMessagesOverOrEmptyOnes)
{
    tova_log(2, "nobody %s", "hears");
    tova_log_register(remember);
    tova_log(2, "Failed %s error %d", "curl_easy_perform", 7);
    for (size_t length : {511, 512})
        tova_log(-1, "%s", std::string(length, 'x').c_str());
    tova_log_register(nullptr);
    tova_log(2, "nobody again");
    const std::pair<int32_t, std::string> failed(2, "Failed curl_easy_perform error 7"),
        whole(-1, std::string(511, 'x'));
    EXPECT_EQ((std::vector{failed, whole, {-1, ""}}), logged);
}

void count_forever(void* argument)
{
    for (;;)
        tova_safe_increment(static_cast<uint32_t*>(argument));
}

TEST(Runtime, OutlivesAHostThatExitsWhileAThreadStillUsesIt)
{
    for (int round = 0; round < 20; ++round) {
        support::Child host([]() -> int {
            static uint32_t counter;
            tova_shutdown();
            tova_shutdown();
            tova_initialize(); // goes down and up again
            tova_thread t;
            tova_thread_create(&t);
            tova_thread_start(&t, count_forever, &counter);
            support::wait_until([] { return __atomic_load_n(&counter, __ATOMIC_RELAXED) > 1000; });
            exit(0); // with static destructors, unlike returning from here
        });
        ASSERT_TRUE(host.wait());
        ASSERT_EQ(0, host.status()) << host.errors();
    }
}

} // namespace
