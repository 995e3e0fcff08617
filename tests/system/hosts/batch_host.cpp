// URL FOLDER FIRST USER: a host that delivers in batches from two threads, each with a session of its own on one log.
// Each logs numbered events for ever, the one from FIRST on and the other a million later, and tells every number once
// its analytics_event_end has returned. USER: a user's number to become, 0 for none. With FIRST -1 it logs nothing and
// sends until all is taken.
#include "host.h"

#include <thread>
#include <unistd.h>

namespace {

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
        const std::string told = std::to_string(number) + '\n';
        host::require(write(STDOUT_FILENO, told.data(), told.size()) > 0, "to tell");
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

int send_all(const std::string& folder, const std::string& url)
{
    analytics_session* session = open_in_batches(folder, url);
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
    host::require(count == 5, "four words");
    const std::string url = words[1], folder = words[2];
    const long first = atol(words[3]);
    const auto user = static_cast<uid_t>(atol(words[4]));
    host::require(user == 0 || (setgid(user) == 0 && setuid(user) == 0), "to become somebody else");
    if (first < 0)
        return send_all(folder, url);
    host::leaves_memory = true;
    std::thread other(log_and_tell, folder, url, first + 1'000'000);
    log_and_tell(folder, url, first);
}
