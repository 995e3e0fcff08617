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

TEST(Runtime, IsUpOnceTheLibraryIsLoadedAndGoesDownAndUpAgain)
{
    uint32_t counter = 0;
    tova_safe_increment(&counter);
    tova_initialize();
    tova_initialize();
    tova_shutdown();
    tova_shutdown();
    tova_initialize();
    tova_safe_increment(&counter);
    tova_safe_decrement(&counter);
    EXPECT_EQ(1u, counter);
}

TEST(Log, HandsWholeMessagesToTheRegisteredCallbackAndEmptiesLongerOnes)
{
    tova_log(2, "nobody %s", "hears");
    tova_log_register(remember);
    tova_log(2, "Failed %s error %d", "curl_easy_perform", 7);
    for (size_t length : {0, 510, 511, 512, 5000})
        tova_log(-1, "%s", std::string(length, 'x').c_str());
    tova_log_register(nullptr);
    tova_log(2, "nobody again");
    EXPECT_EQ((std::vector<std::pair<int32_t, std::string>>{{2, "Failed curl_easy_perform error 7"},
                                                            {-1, ""},
                                                            {-1, std::string(510, 'x')},
                                                            {-1, std::string(511, 'x')},
                                                            {-1, ""},
                                                            {-1, ""}}),
              logged);
}

void count_forever(void* argument)
{
    for (;;)
        tova_safe_increment(static_cast<uint32_t*>(argument));
}

TEST(Runtime, OutlivesAHostThatExitsWhileAThreadStillUsesIt)
{
    for (int round = 0; round < 20; ++round) {
        support::Child host([] {
            static uint32_t counter;
            tova_thread t;
            tova_thread_create(&t);
            if (!tova_thread_start(&t, count_forever, &counter))
                return 1;
            support::wait_until([] { return __atomic_load_n(&counter, __ATOMIC_RELAXED) > 1000; });
            exit(0); // with static destructors, unlike returning from here
        });
        ASSERT_TRUE(host.wait());
        ASSERT_EQ(0, host.status()) << host.errors();
    }
}

} // namespace
