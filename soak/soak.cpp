// SECONDS: load and faults, round after round, for so many seconds; a run of a minute or more goes on until it has seen
// 500 kills and a million events. Ends with 1 when anything was found.

#include "support/scratch.h"
#include "system/runs.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

constexpr int sessions = 16, kills_wanted = 500;
constexpr long events_wanted = 1'000'000, events_per_round = events_wanted / sessions;

struct Totals
{
    int kills = 0, senders = 0, cuts = 0, repeated = 0, tails = 0, hosts = 0, uploads = 0, accepted = 0;
    long killed_events = 0, sent = 0, events = 0, received = 0, waiting = 0, in_window = 0, window_bytes = 0;
    bool found = false;
};

void judge(Totals& totals, const std::string& finding)
{
    if (finding.empty())
        return;
    printf("FINDING: %s\n", finding.c_str());
    totals.found = true;
}

void kill_hosts(Totals& totals, unsigned seed)
{
    support::ScratchFolder folder;
    const CrashReport report = kill_again_and_again(folder.path().string(), 250, seed);
    totals.kills += report.kills;
    totals.tails += report.tails;
    totals.killed_events += report.events;
    judge(totals, report.finding);
}

// As whoever runs this, and as an ordinary user where root runs it.
void kill_senders(Totals& totals, unsigned seed)
{
    const int users[] = {0, 65534};
    for (const int user : users) {
        if (user != 0 && getuid() != 0)
            break;
        support::ScratchFolder folder;
        const BatchReport report = deliver_while_killing(folder.path().string(), 250, seed, user);
        totals.senders += report.kills;
        totals.sent += report.events;
        totals.cuts += report.cuts;
        totals.repeated += report.repeated;
        judge(totals, report.finding);
    }
}

void keep_busy(Totals& totals)
{
    support::ScratchFolder folder;
    const BusyReport report = seal_while_busy(folder.path().string(), 3000);
    printf(
        "  8 busy threads in 4 processes: %ld events, the slowest took %.1f ms; %d sealings, at most %.1f ms apart\n",
        report.events, report.longest_ms, report.seals, report.unsealed_ms);
    judge(totals, report.finding);
}

void leave_hosts(Totals& totals, unsigned seed)
{
    const LifeReport report = leave_again_and_again(10, seed);
    totals.hosts += report.hosts;
    judge(totals, report.finding);
}

// Flat: what the sessions hold at rest grows neither with events nor with uploads. A first quarter warms up.
void judge_growth(Totals& totals, const LoadReport& report)
{
    printf("  at rest after each quarter: %ld %ld %ld %ld KB, %ld %ld %ld %ld descriptors\n", report.kilobytes[0],
           report.kilobytes[1], report.kilobytes[2], report.kilobytes[3], report.descriptors[0], report.descriptors[1],
           report.descriptors[2], report.descriptors[3]);
    if (report.kilobytes[3] > report.kilobytes[0] + report.kilobytes[0] / 4 + 10'000)
        judge(totals, "memory grows");
    if (report.descriptors[3] > report.descriptors[0] + sessions)
        judge(totals, "descriptors grow");
}

void load_sessions(Totals& totals)
{
    support::ScratchFolder folder;
    const LoadReport report = load(folder.path().string(), sessions, events_per_round);
    totals.events += report.events;
    totals.received += report.received;
    totals.waiting += report.waiting;
    totals.in_window += report.in_window;
    totals.window_bytes += report.window_bytes;
    totals.uploads += report.uploads;
    totals.accepted += report.accepted;
    judge(totals, report.finding);
    judge_growth(totals, report);
}

void print(const Totals& totals)
{
    printf("killed     %8d hosts within %ld events: whole lines, no gap; %d unfinished tails, each closed off\n",
           totals.kills, totals.killed_events, totals.tails);
    printf("batches    %8d kills of hosts that deliver %ld events to a server that cut %d connections: each is there "
           "once; %d requests brought nothing new\n",
           totals.senders, totals.sent, totals.cuts, totals.repeated);
    printf("left       %8d hosts by exit, abort, return and fork with uploads under way\n", totals.hosts);
    printf("logged     %8ld events in %d sessions, %d of %d uploads taken\n", totals.events, sessions, totals.accepted,
           totals.uploads);
    printf("  received %8ld\n  waiting  %8ld in the files\n", totals.received, totals.waiting);
    printf("  window   %8ld came between a file's read and its deletion (size deleted less size read: %ld bytes)\n",
           totals.in_window, totals.window_bytes);
    puts(totals.found ? "FOUND: see above" : "every event is accounted for");
}

} // namespace

int main(int count, char** arguments)
{
    const int seconds = count > 1 ? atoi(arguments[1]) : 60;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    Totals totals;
    const auto enough = [&] {
        const bool whole = seconds < 60 || (totals.kills >= kills_wanted && totals.senders >= kills_wanted &&
                                            totals.events >= events_wanted);
        return totals.found || (whole && std::chrono::steady_clock::now() >= end);
    };
    for (unsigned round = 1; round == 1 || !enough(); ++round) {
        printf("round %u\n", round);
        kill_hosts(totals, round);
        kill_senders(totals, round);
        keep_busy(totals);
        leave_hosts(totals, round);
        load_sessions(totals);
    }
    print(totals);
    return totals.found ? 1 : 0;
}
