#include "support/child.h"
#include "system/hosts/host.h"
#include "system/programs.h"
#include "system/runs.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <sstream>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

uint64_t batches_of(analytics_session* session)
{
    analytics_stats stats;
    analytics_stats_get(session, &stats, sizeof stats);
    return stats.batches_waiting;
}

} // namespace

BusyReport seal_while_busy(const std::string& folder, int run_ms)
{
    BusyReport report;
    const std::string nobody = "http://127.0.0.1:9/";
    std::vector<std::unique_ptr<support::Child>> hosts;
    for (int at = 0; at < 4; ++at)
        hosts.push_back(std::make_unique<support::Child>(
            std::vector<std::string>{host_program("batch_host"), nobody, folder, std::to_string(run_ms), "0", "busy"}));
    analytics_session* session = host::open(folder, nobody);
    for (const auto& [key, value] : {std::pair("delivery", "batches"), std::pair("outbox_bytes", "1099511627776")})
        analytics_option_set(session, key, value);
    const auto is_busy = [&] { return std::none_of(hosts.begin(), hosts.end(), [](auto& h) { return h->wait({}); }); };
    // Each sending fails at once, but seals first.
    auto last = Clock::now();
    for (uint64_t before = 0, after; is_busy(); before = after) {
        analytics_send_for(session, 150);
        if ((after = batches_of(session)) == before)
            continue;
        const auto now = Clock::now();
        if (report.seals++ > 0)
            report.unsealed_ms =
                std::max(report.unsealed_ms, std::chrono::duration<double, std::milli>(now - last).count());
        last = now;
    }
    analytics_shutdown(session);
    for (auto& host : hosts) {
        long events = 0, longest_us = 0;
        if (!host->wait() || !(std::istringstream(host->output()) >> events >> longest_us))
            report.finding = "a busy host ended by itself: " + host->errors();
        report.events += events;
        report.longest_ms = std::max(report.longest_ms, static_cast<double>(longest_us) / 1000);
    }
    return report;
}
