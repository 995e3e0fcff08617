// FOLDER URL SESSIONS EVENTS: as many sessions, each on a thread of its own with a log file of its own and its number
// as the last part of its address, log EVENTS numbered events each and upload throughout, by turns waiting for the
// upload and logging on beside it.
//
// Prints "deleted SESSION BYTES" for every event log file that is deleted, and at the end of each quarter "quarter
// DESCRIPTORS THREADS KILOBYTES": what the process holds while all sessions rest.

#include "host.h"

#include <atomic>
#include <barrier>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::mutex printing;

} // namespace

// The library's own deletions come through here, with its lock held: the size is what is deleted, to the byte.
extern "C" int remove(const char* path) noexcept
{
    struct stat status;
    if (stat(path, &status) == 0) {
        std::lock_guard hold(printing);
        printf("deleted %s %ld\n", path, static_cast<long>(status.st_size));
    }
    return unlink(path);
}

namespace {

constexpr long beside = 10;

struct Session
{
    analytics_session* handle = nullptr;
    std::atomic<bool> sending{false};

    void wait_until_told() const
    {
        while (sending)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
};

void tell_what_is_held()
{
    std::lock_guard hold(printing);
    printf("quarter %ld %ld %ld\n", host::entries("/proc/self/fd"), host::entries("/proc/self/task"),
           host::resident_kb());
}

// Every `stride` events an upload; every third one is waited for, beside the others a few more events are logged.
void log_and_send(Session& session, long from, long to, long stride)
{
    for (long number = from; number <= to; ++number) {
        if (number % stride == beside)
            session.wait_until_told();
        host::log_numbered(session.handle, number, static_cast<size_t>(number % 50));
        if (number % stride == 0 && number / stride % 3 == 0) {
            analytics_send(session.handle, 1);
        } else if (number % stride == 0) {
            session.sending = true;
            if (analytics_send(session.handle, 0) != ANALYTICS_OK)
                session.sending = false;
        }
    }
    session.wait_until_told();
}

void observe(Session& session)
{
    const auto told = [](void* context, uint32_t, double) { static_cast<Session*>(context)->sending = false; };
    analytics_observer_add(session.handle, "complete", told, &session);
    analytics_observer_add(session.handle, "error", told, &session);
}

} // namespace

int main(int count, char** arguments)
{
    host::require(count == 5, "FOLDER URL SESSIONS EVENTS");
    setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
    const int sessions = atoi(arguments[3]);
    const long events = atol(arguments[4]), quarter = events / 4;
    std::vector<Session> all(static_cast<size_t>(sessions));
    std::barrier rest(sessions, []() noexcept { tell_what_is_held(); });
    std::vector<std::thread> threads;
    for (int number = 0; number < sessions; ++number)
        threads.emplace_back([&, number] {
            Session& session = all[static_cast<size_t>(number)];
            session.handle = host::open(arguments[1], arguments[2] + ("/" + std::to_string(number + 1)), number + 1);
            observe(session);
            for (int part = 0; part < 4; ++part) {
                log_and_send(session, part * quarter + 1, part == 3 ? events : (part + 1) * quarter,
                             std::max(events / 200, 2 * beside));
                rest.arrive_and_wait();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (Session& session : all)
        analytics_shutdown(session.handle);
    return 0;
}
