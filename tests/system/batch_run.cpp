#include "support/batches.h"
#include "support/child.h"
#include "support/raw_server.h"
#include "support/scratch.h"
#include "system/numbered_log.h"
#include "system/programs.h"
#include "system/runs.h"

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <unistd.h>

namespace {

constexpr int hosts_at_once = 4;
constexpr long numbers_per_host = 2'000'000; // two threads of a million

/// A server that is killed and cut: before it stores, between storing and answering, in the middle of the answer.
class CutReceiver
{
public:
    explicit CutReceiver(unsigned seed) : m_random(seed), m_server([this](auto& peer) { serve(peer); }) {}

    std::string url() const { return m_server.url(); }
    void behave() { m_behaves = true; }
    std::map<long, int> numbers() const
    {
        std::lock_guard hold(m_lock);
        return m_numbers;
    }
    std::atomic<int> requests{0}, cuts{0}, repeated{0}, bad{0};

private:
    unsigned chance()
    {
        std::lock_guard hold(m_lock);
        return m_behaves ? 0 : m_random() % 100;
    }

    // Kept open for as long as the host has more to send.
    void serve(support::RawServer::Connection& peer)
    {
        const unsigned fate = chance();
        if (fate >= 90) { // nobody is there
            ++cuts;
            return peer.reset();
        }
        if (!peer.read_request())
            return;
        ++requests;
        if (fate >= 80) {
            ++cuts;
            return fate >= 88 ? peer.hang() : peer.reset();
        }
        const std::string& request = peer.request();
        const auto form = support::parse_form(std::string_view(request).substr(request.find("\r\n\r\n") + 4));
        if (fate >= 70) { // a single line is never too large: it would be dropped
            const bool isLarge = fate >= 75 && form.count("n") != 0 && form.at("n") != "1";
            peer.send(isLarge ? "HTTP/1.1 413 large\r\nContent-Length: 0\r\n\r\n"
                              : "HTTP/1.1 503 busy\r\nContent-Length: 0\r\n\r\n");
            return;
        }
        store(form);
        const std::string_view answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
        cuts += fate >= 50;
        if (fate >= 60)
            return peer.reset();
        peer.send(fate >= 50 ? answer.substr(0, fate % 10 * 4) : answer);
    }

    void store(const support::Form& form)
    {
        std::lock_guard hold(m_lock);
        const auto fresh = m_batches.take(form);
        if (!fresh) {
            ++bad;
            return;
        }
        repeated += fresh->empty();
        for (const std::string_view line : *fresh)
            ++m_numbers[number_in(line)]; // -1: a line that a kill has torn
    }

    mutable std::mutex m_lock;
    std::mt19937 m_random;
    std::atomic<bool> m_behaves{false};
    support::Batches m_batches;
    std::map<long, int> m_numbers;
    support::RawServer m_server;
};

/// The numbers that a host has told, of which a kill may have cut the last.
void take_told(const std::string& output, std::map<long, int>& told)
{
    for (const std::string& line : support::split_lines(output.substr(0, output.rfind('\n') + 1)))
        ++told[std::stol(line)];
}

std::string judge(const std::map<long, int>& told, const std::map<long, int>& stored)
{
    for (const auto& [number, times] : stored)
        if (number >= 0 && times != 1)
            return "number " + std::to_string(number) + " is there " + std::to_string(times) + " times";
    size_t missing = 0;
    long example = 0;
    for (const auto& [number, times] : told)
        if (stored.count(number) == 0) {
            ++missing;
            example = number;
        }
    return missing == 0 ? "" : std::to_string(missing) + " events are missing, such as " + std::to_string(example);
}

} // namespace

BatchReport deliver_while_killing(const std::string& folder, int kills, unsigned seed, int user)
{
    BatchReport report;
    std::mt19937 random(seed);
    CutReceiver receiver(seed);
    std::map<long, int> told;
    std::unique_ptr<support::Child> hosts[hosts_at_once];
    long started = 0;
    if (user != 0 && chown(folder.c_str(), static_cast<uid_t>(user), static_cast<gid_t>(user)) != 0)
        return {.finding = "the folder cannot be given away"};
    const auto start = [&](long first) {
        return std::make_unique<support::Child>(std::vector<std::string>{host_program("batch_host"), receiver.url(),
                                                                         folder, std::to_string(first),
                                                                         std::to_string(user), "batches"});
    };
    for (; report.kills < kills; ++report.kills) {
        auto& host = hosts[random() % hosts_at_once];
        if (host) {
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000)); // the random moment itself
            host->kill(SIGKILL);
            if (!host->wait() || host->status() != 128 + SIGKILL)
                return {.finding = "a host ended by itself: " + host->errors()};
            take_told(host->output(), told);
        }
        host = start(numbers_per_host * started++);
    }
    for (auto& host : hosts)
        if (host) {
            host->kill(SIGKILL);
            host->wait();
            take_told(host->output(), told);
        }
    receiver.behave();
    auto last = start(-1);
    if (!last->wait(std::chrono::minutes(5)) || last->status() != 0)
        return {.finding = "what waits does not drain: " + last->errors()};
    report.events = static_cast<long>(told.size());
    report.requests = receiver.requests;
    report.cuts = receiver.cuts;
    report.repeated = receiver.repeated;
    const auto stored = receiver.numbers();
    report.torn = stored.count(-1) != 0 ? stored.at(-1) : 0;
    report.finding = receiver.bad != 0 ? "requests that are none" : judge(told, stored);
    return report;
}
