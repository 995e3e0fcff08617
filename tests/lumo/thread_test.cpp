#include "lumo/thread.h"

#include "lumo/mutex.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

// Runs until it is told to stop, then says so.
class Worker : public lumo::runnable_thread
{
public:
    ~Worker() override
    {
        stop();
        join();
    }

    int run() override
    {
        runner = std::this_thread::get_id();
        tova_event_wait(&_stop_event);
        return ++runs;
    }

    void join() { tova_thread_join(&_thread); }

    std::thread::id runner;
    int runs = 0;
};

} // namespace

TEST(RunnableThread, RunsOnAThreadOfItsOwnUntilStoppedAndNeverForgetsAStop)
{
    Worker worker;
    ASSERT_TRUE(worker.start());
    worker.stop();
    worker.stop();
    worker.join();
    EXPECT_EQ(worker.runs, 1);
    EXPECT_NE(worker.runner, std::this_thread::get_id());
    ASSERT_TRUE(worker.start());
    worker.join();
    EXPECT_EQ(worker.runs, 2);
}

TEST(ThreadEntry, RunsWhatItsArgumentPointsTo)
{
    Worker worker;
    worker.stop();
    lumo::runnable* target = &worker;
    lumo::thread::entry(&target);
    EXPECT_EQ(worker.runner, std::this_thread::get_id());
}

TEST(Mutex, IsTakenAgainByItsHolderOnlyWhenNotFast)
{
    for (const bool fast : {false, true}) {
        lumo::mutex mutex(fast);
        const auto free_elsewhere = [&] {
            bool taken = false;
            std::thread([&] {
                if ((taken = mutex.try_lock()))
                    mutex.unlock();
            }).join();
            return taken;
        };
        {
            const lumo::scoped_lock hold(mutex);
            EXPECT_FALSE(free_elsewhere());
            const bool again = mutex.try_lock();
            EXPECT_EQ(again, !fast);
            if (again)
                mutex.unlock();
        }
        EXPECT_TRUE(free_elsewhere());
    }
}
