// URL FOLDER FIRST USER batches: a host that delivers in batches from two threads, each with a session of its own on
// one log. Each logs numbered events for ever, the one from FIRST on and the other a million later, and tells every
// number once its analytics_event_end has returned. URL FOLDER FIRST USER whole: in the default mode, from one thread,
// which uploads after every twenty events and tells their numbers once an upload was taken. USER: a user's number to
// become, 0 for none. With FIRST -1 either logs nothing and sends until all is taken.
#include "host.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

void tell(const std::string& numbers)
{
    host::require(write(STDOUT_FILENO, numbers.data(), numbers.size()) > 0, "to tell");
}

analytics_session* open_in_batches(const std::string& folder, const std::string& url)
{
    analytics_session* session = host::open(folder, url);
    const char* const options[][2] = {{"batch_bytes", "4096"},  {"interval_ms", "30"},   {"retry_first_ms", "10"},
                                      {"retry_most_ms", "100"}, {"request_ms", "300"},   {"close_ms", "100"},
                                      {"delivery", "batches"},  {"send_at_start", "yes"}};
    for (const auto& option : options)
        host::require(analytics_option_set(session, option[0], option[1]) == 0, option[0]);
    return session;
}

void log_and_tell(const std::string& folder, const std::string& url, long first)
{
    analytics_session* session = open_in_batches(folder, url);
    for (long number = first;; ++number) {
        // Short ones, and now and then one that is a batch by itself.
        host::log_numbered(session, number, number % 50 == 0 ? 6000 : 20 + number % 200);
        tell(std::to_string(number) + '\n');
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

analytics_session* open_whole(const std::string& folder, const std::string& url)
{
    analytics_session* session = host::open(folder, url);
    host::require(analytics_option_set(session, "request_ms", "1000") == 0, "request_ms");
    return session;
}

// Nothing is logged while an upload is under way: in the default mode it would be deleted with what was sent.
void upload_and_tell(const std::string& folder, const std::string& url, long first)
{
    analytics_session* session = open_whole(folder, url);
    for (long number = first;;) {
        std::string numbers;
        for (const long end = number + 20; number < end; ++number) {
            host::log_numbered(session, number, 20 + number % 200);
            numbers += std::to_string(number) + '\n';
        }
        while (analytics_send(session, 1) != 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        tell(numbers);
    }
}

struct Waits
{
    long events = 0, longest_us = 0;
};

void log_without_pause(const std::string& folder, const std::string& url, Clock::time_point end, Waits& waits)
{
    analytics_session* session = open_in_batches(folder, url);
    analytics_option_set(session, "batch_bytes", "16777216"); // sealed by others only
    for (auto before = Clock::now(); before < end; ++waits.events) {
        host::log_numbered(session, waits.events, 20);
        const auto after = Clock::now();
        waits.longest_us = std::max<long>(
            waits.longest_us, std::chrono::duration_cast<std::chrono::microseconds>(after - before).count());
        before = after;
    }
    analytics_shutdown(session);
}

int stay_busy(const std::string& folder, const std::string& url, long run_ms)
{
    const auto end = Clock::now() + std::chrono::milliseconds(run_ms);
    Waits one, other;
    std::thread second([&] { log_without_pause(folder, url, end, other); });
    log_without_pause(folder, url, end, one);
    second.join();
    tell(std::to_string(one.events + other.events) + ' ' + std::to_string(std::max(one.longest_us, other.longest_us)));
    return 0;
}

int send_all(analytics_session* session)
{
    uint32_t result = 0;
    for (int tries = 0; tries < 100 && (result = analytics_send_for(session, 30'000)) != 0; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    analytics_stats stats;
    analytics_stats_get(session, &stats, sizeof stats);
    host::require(result == 0 && stats.bytes_waiting == 0 && stats.events_dropped == 0, "an empty outbox at the end");
    analytics_shutdown(session);
    return 0;
}

} // namespace

int main(int count, char** words)
{
    host::require(count == 6, "five words");
    const std::string url = words[1], folder = words[2];
    const long first = atol(words[3]);
    const auto user = static_cast<uid_t>(atol(words[4]));
    const bool whole = words[5] == std::string("whole");
    host::require(user == 0 || (setgid(user) == 0 && setuid(user) == 0), "to become somebody else");
    if (words[5] == std::string("busy"))
        return stay_busy(folder, url, first);
    if (first < 0)
        return send_all((whole ? open_whole : open_in_batches)(folder, url));
    host::leaves_memory = true;
    if (whole)
        upload_and_tell(folder, url, first);
    std::thread other(log_and_tell, folder, url, first + 1'000'000);
    log_and_tell(folder, url, first);
}
