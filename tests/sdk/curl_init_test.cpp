// Labels: threads
#include "CurlInit.h"

#include <functional>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <thread>

#include "lumo/tova/thread.h"

using AnalyticsSDK::CurlInit;

TEST(CurlInit, GivesOpenSslLocksThatExcludeOtherThreadsOnly)
{
    CRYPTO_dynlock_value* const made = CurlInit::dyn_create_function("", 0);
    const std::function<void(int)> locks[] = {
        [](int mode) { CurlInit::locking_function(mode, CRYPTO_num_locks() - 1, "", 0); },
        [=](int mode) { CurlInit::dyn_lock_function(mode, made, "", 0); }};
    for (const auto& lock : locks) {
        int count = 0;
        const auto add = [&] {
            for (int i = 0; i < 20'000; ++i) {
                lock(CRYPTO_LOCK | CRYPTO_WRITE);
                lock(CRYPTO_LOCK | CRYPTO_READ);
                ++count;
                lock(CRYPTO_UNLOCK | CRYPTO_READ);
                lock(CRYPTO_UNLOCK | CRYPTO_WRITE);
            }
        };
        std::thread other(add);
        add();
        other.join();
        EXPECT_EQ(count, 40'000);
    }
    CurlInit::dyn_destroy_function(made, "", 0);
    EXPECT_EQ(CurlInit::id_function(), tova_thread_id());
}

TEST(CurlInit, InstallsTheCallbacksAnewOnceClosed)
{
    CurlInit init;
    EXPECT_TRUE(init.GetLocks());
    EXPECT_TRUE(init.CloseOpenSSLCallbacks());
    EXPECT_FALSE(init.GetLocks());
    EXPECT_FALSE(init.CloseOpenSSLCallbacks());
    EXPECT_TRUE(init.InitOpenSSLCallbacks());
    EXPECT_TRUE(init.GetLocks());
}
