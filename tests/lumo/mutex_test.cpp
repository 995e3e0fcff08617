// Labels: threads
#include "lumo/mutex.h"

#include <gtest/gtest.h>

// How locks work among threads is tested one layer below, and runnable_thread through the SDK's worker.
TEST(Mutex, IsTakenAgainByItsHolderUnlessFast)
{
    for (const bool fast : {false, true}) {
        lumo::mutex mutex(fast);
        {
            const lumo::scoped_lock hold(mutex);
            const bool again = mutex.try_lock();
            EXPECT_EQ(again, !fast);
            if (again)
                mutex.unlock();
        }
        EXPECT_TRUE(mutex.try_lock());
        mutex.unlock();
    }
}
