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

// What locks do among threads is tested one layer below.
TEST(Mutex, IsTakenAgainByItsHolderOnlyWhenNotFast)
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
        EXPECT_TRUE(mutex.try_lock()) << "given back by the guard";
        mutex.unlock();
    }
}
