// Every wait of the portability layer (but the named event's, which aborts) outlasts signals: it ends for its own
// reason and for no other.

#include "lumo/tova/tova.h"
#include "support/wait.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<int> signals;

// Interrupts the thread that made it, again and again.
class Storm
{
public:
    Storm() : m_target(pthread_self())
    {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++signals; }; // without SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
        signals = 0;
        m_thread = std::thread([this] {
            while (!m_over) {
                pthread_kill(m_target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    ~Storm()
    {
        m_over = true;
        m_thread.join();
    }

private:
    pthread_t m_target;
    std::atomic<bool> m_over{false};
    std::thread m_thread;
};

// Runs `wait` in a storm and `end`, on another thread, when it has been interrupted a good many times.
void interrupted(const std::function<void()>& wait, const std::function<void()>& end)
{
    Storm storm;
    std::atomic<bool> ended{false};
    std::thread ender([&] {
        EXPECT_TRUE(support::wait_until([] { return signals >= 50; }));
        ended = true;
        end();
    });
    wait();
    EXPECT_TRUE(ended) << "a signal ended the wait";
    ender.join();
}

} // namespace

TEST(ThreadsSignals, EndNoWaitForAnEvent)
{
    tova_event event;
    tova_event_create(&event, 1);
    interrupted([&] { tova_event_wait(&event); }, [&] { tova_event_set(&event); });
    interrupted([&] { EXPECT_NE(tova_event_wait_time(&event, 60'000), 0); }, [&] { tova_event_set(&event); });
    tova_event_destroy(&event);
}

TEST(ThreadsSignals, EndNoWaitForASemaphore)
{
    tova_semaphore semaphore;
    tova_semaphore_create(&semaphore, 0, 1);
    interrupted([&] { tova_semaphore_wait(&semaphore); }, [&] { tova_semaphore_set(&semaphore); });
    interrupted([&] { EXPECT_NE(tova_semaphore_wait_time(&semaphore, 60'000), 0); },
                [&] { tova_semaphore_set(&semaphore); });
    tova_semaphore_destroy(&semaphore);
}

TEST(ThreadsSignals, EndNoTimedWaitBeforeItsTime)
{
    tova_event event;
    tova_event_create(&event, 0);
    Storm storm;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(tova_event_wait_time(&event, 60), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(59));
    EXPECT_GT(signals, 1);
    tova_event_destroy(&event);
}

TEST(ThreadsSignals, EndNoWaitForAMutexOrAThread)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer holds signals back while a thread waits for these";
#endif
    tova_mutex mutex;
    tova_mutex_create_fast(&mutex);
    std::atomic<bool> held{false}, let_go{false};
    const auto hold = [&] {
        tova_mutex_lock(&mutex);
        held = true;
        support::wait_until([&] { return let_go.load(); });
        tova_mutex_unlock(&mutex);
    };
    std::thread holder(hold);
    ASSERT_TRUE(support::wait_until([&] { return held.load(); }));
    interrupted([&] { tova_mutex_lock(&mutex); }, [&] { let_go = true; });
    tova_mutex_unlock(&mutex);
    holder.join();
    tova_mutex_destroy(&mutex);

    static std::atomic<bool> over;
    over = false;
    tova_thread thread;
    tova_thread_create(&thread);
    ASSERT_EQ(1, tova_thread_start(
                     &thread, [](void*) { support::wait_until([] { return over.load(); }); }, nullptr));
    interrupted([&] { tova_thread_join(&thread); }, [] { over = true; });
    tova_thread_destroy(&thread);
}

TEST(ThreadsSignals, EndNoReadFromAFile)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    tova_file file;
    tova_file_init(&file);
    ASSERT_EQ(1, tova_file_open(&file, ("/dev/fd/" + std::to_string(ends[0])).c_str(), tova_file_read_only));
    char text[4] = {};
    uint32_t count = 0;
    interrupted([&] { EXPECT_EQ(1, tova_file_read(&file, text, 3, &count)); },
                [&] { EXPECT_EQ(3, write(ends[1], "end", 3)); });
    EXPECT_STREQ("end", text);
    tova_file_close(&file);
    close(ends[0]);
    close(ends[1]);
}
