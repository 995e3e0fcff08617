// URL FOLDER FIRST WAY MICROSECONDS: a host that logs numbered events for ever, from FIRST on and as many microseconds
// apart, and uploads them all the while; WAY: batches or whole. Its id is the folder's name. The numbers that the
// library has taken stand in FOLDER/told, eight bytes each. With FIRST -1 it logs nothing, and ends with 0 once all is
// delivered.
#include "host.h"

#include <cinttypes>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr long whole_upload_every = 50; // events

analytics_session* open_one(const std::string& url, const std::string& folder, const std::string& way)
{
    analytics_config config = host::configured(folder, url);
    host::set(config.unique_id, std::filesystem::path(folder).filename().string());
    analytics_session* session = analytics_initialize(&config);
    host::require(session != nullptr, "a session");
    // A whole file is sent by the thread that logs, and by nobody beside it: what is logged meanwhile goes with the
    // file.
    const bool whole = way == "whole";
    const char* const options[][2] = {{"batch_bytes", "65536"},  {"interval_ms", whole ? "3600000" : "200"},
                                      {"retry_first_ms", "50"},  {"retry_most_ms", "500"},
                                      {"request_ms", "10000"},   {"close_ms", "100"},
                                      {"delivery", way.c_str()}, {"send_at_start", whole ? "no" : "yes"}};
    for (const auto& option : options)
        host::require(analytics_option_set(session, option[0], option[1]) == 0, option[0]);
    return session;
}

analytics_stats stats_of(analytics_session* session)
{
    analytics_stats stats = {};
    host::require(analytics_stats_get(session, &stats, sizeof stats) == 0, "statistics");
    return stats;
}

[[noreturn]] void log_and_tell(analytics_session* session, const std::string& folder, long first, bool whole,
                               long apart)
{
    const int told = open((folder + "/told").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    host::require(told >= 0, "a file to tell in");
    uint64_t failed = 0;
    for (int64_t number = first;; ++number) {
        host::log_numbered(session, number, number % 50 == 0 ? 6000 : 20 + static_cast<size_t>(number % 200));
        const uint64_t failed_now = stats_of(session).events_failed;
        if (failed_now == failed)
            host::require(write(told, &number, sizeof number) == sizeof number, "to tell");
        failed = failed_now;
        if (whole && number % whole_upload_every == 0)
            analytics_send_for(session, 1000);
        std::this_thread::sleep_for(std::chrono::microseconds(apart));
    }
}

int deliver_all(analytics_session* session)
{
    for (int tries = 0; tries < 200; ++tries) {
        const uint32_t result = analytics_send_for(session, 5000);
        const analytics_stats stats = stats_of(session);
        host::require(stats.events_dropped == 0, "no event dropped");
        if (result == 0 && stats.bytes_waiting == 0)
            return 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    host::fail("something is not delivered");
}

} // namespace

int main(int count, char** words)
{
    host::require(count == 6, "five words");
    const std::string folder = words[2], way = words[4];
    analytics_session* session = open_one(words[1], folder, way);
    const long first = atol(words[3]);
    if (first < 0)
        return deliver_all(session);
    log_and_tell(session, folder, first, way == "whole", atol(words[5]));
}
