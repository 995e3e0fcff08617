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

template <class Operation>
bool elsewhere(Operation operation)
{
    bool result = false;
    std::thread([&] { result = operation(); }).join();
    return result;
}

bool try_and_release(lumo::mutex& m)
{
    if (!m.try_lock())
        return false;
    m.unlock();
    return true;
}

} // namespace

TEST(RunnableThread, RunsOnAThreadOfItsOwnUntilStopped)
{
    Worker worker;
    ASSERT_TRUE(worker.start());
    worker.stop();
    worker.stop();
    worker.join();
    EXPECT_EQ(worker.runs, 1);
    EXPECT_NE(worker.runner, std::this_thread::get_id());
}

TEST(RunnableThread, NeverForgetsAStop)
{
    Worker worker;
    worker.stop();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(worker.start());
        worker.join();
    }
    EXPECT_EQ(worker.runs, 3);
}

TEST(ThreadEntry, RunsWhatItsArgumentPointsTo)
{
    Worker worker;
    worker.stop();
    lumo::runnable* target = &worker;
    lumo::thread::entry(&target);
    EXPECT_EQ(worker.runner, std::this_thread::get_id());
}

TEST(Mutex, OfTheRecursiveKindIsTakenAgainByItsHolderOnly)
{
    lumo::mutex mutex(false);
    const lumo::scoped_lock hold(mutex);
    EXPECT_TRUE(try_and_release(mutex));
    EXPECT_FALSE(elsewhere([&] { return try_and_release(mutex); }));
}

TEST(Mutex, OfTheFastKindIsTakenOnce)
{
    lumo::mutex mutex(true);
    {
        const lumo::scoped_lock hold(mutex);
        EXPECT_FALSE(elsewhere([&] { return try_and_release(mutex); }));
    }
    EXPECT_TRUE(elsewhere([&] { return try_and_release(mutex); }));
}
