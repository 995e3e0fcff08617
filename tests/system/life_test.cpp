// The library in a host's life: being killed, leaving in every way, forking, loading and unloading, several hosts at
// once, libcurl beside it, and the habits that a process may have.
// Labels: threads, network, faults

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

#include "support/certificates.h"
#include "support/child.h"
#include "support/cutting_relay.h"
#include "support/http_server.h"
#include "support/raw_server.h"
#include "support/session.h"
#include "system/numbered_log.h"
#include "system/programs.h"
#include "system/runs.h"

using support::Child;
using support::read_file;
using support::ScratchFolder;
using support::Session;
using LongNumbers = std::vector<long>;

namespace {

/// The numbers of a log's events; every line must be one.
LongNumbers numbers_of(const std::string& log)
{
    const NumberedLog found = numbered_log(log);
    EXPECT_EQ(found.broken, std::vector<std::string>());
    EXPECT_EQ(found.tail, "");
    return found.numbers;
}

/// Of a host that forks: its child may leave its copy of the parent's connections where it is, unseen by a leak check.
support::ChildOptions forking_host()
{
    const char* options = getenv("ASAN_OPTIONS");
    return {{std::string("ASAN_OPTIONS=") + (options != nullptr ? options : "") + ":detect_leaks=0"}, {}, {}};
}

// In a fixed order, because two threads print the lines.
std::string sorted_lines(const std::string& text)
{
    std::vector<std::string> lines = support::split_lines(text);
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const std::string& line : lines)
        all += line + ',';
    return all;
}

} // namespace

TEST(Crash, AKilledHostLeavesOneCutLineAtMost)
{
    ScratchFolder folder;
    const CrashReport report = kill_again_and_again(folder.path().string(), 60, 1);
    EXPECT_EQ(report.finding, "");
    EXPECT_GT(report.events, 60);
}

TEST(Crash, EveryEventArrivesOnceFromHostsThatAreKilledWhileTheySend)
{
    support::ScratchFolder folder;
    const BatchReport report = deliver_while_killing(folder.path().string(), 60, 1, getuid() == 0 ? 65534 : 0);
    EXPECT_EQ(report.finding, "");
    EXPECT_GT(report.events, 100);
    EXPECT_GT(report.cuts, 0);
}

TEST(Load, BusyWritersNeitherStarveTheSealingNorWaitLong)
{
    ScratchFolder folder;
    const BusyReport report = seal_while_busy(folder.path().string(), 1500);
    EXPECT_EQ(report.finding, "");
    EXPECT_GT(report.events, 1000);
    EXPECT_GT(report.seals, 5);
    EXPECT_LT(report.unsealed_ms, 1000);
    EXPECT_LT(report.longest_ms, 1000) << "100 ms, and what the machine does meanwhile";
}

TEST(Load, EveryEventOfSixteenBusySessionsIsAccountedFor)
{
    ScratchFolder folder;
    const LoadReport report = load(folder.path().string(), 16, 1000);
    EXPECT_EQ(report.finding, "");
    EXPECT_GT(report.received, 8000);
    EXPECT_GT(report.uploads, report.accepted);
    EXPECT_LE(report.descriptors[3], report.descriptors[0] + 16) << "beyond one idle connection for each session";
}

TEST(Host, ThatForksSendsInTheParentOnly)
{
    ScratchFolder folder;
    support::HttpServer server;
    const auto ended = support::run(host_steps(folder, server.url(),
                                               {"open", "numbered=1:1", "fork=5", "numbered=2:2", "send", "send_async",
                                                "close", "exit=0", "send", "close"}),
                                    forking_host());
    EXPECT_EQ(ended.output + ended.errors, "send 200\nstarted 200\nchild 0\nsend 0\n");
    ASSERT_EQ(server.count(), 1u) << "the child's event travels with the parent's";
    EXPECT_EQ(numbers_of(server.requests()[0].form.at("data")), (LongNumbers{1, 2}));
}

TEST(Host, MayForkWhileAThreadAsksForTheTime)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer cannot follow threads that are started in a forked child";
#endif
    ScratchFolder folder;
    std::vector<std::string> steps = {"tell_the_time"};
    for (int child = 0; child < 20; ++child)
        for (const char* step : {"fork=3", "open", "numbered=1:1", "quick_exit=0"})
            steps.push_back(step);
    const auto ended = support::run(host_steps(folder, "http://127.0.0.1:1/", steps), forking_host());
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(numbers_of(read_file(folder.file("log"))).size(), 20u);
}

TEST(Host, OfManyThreadsAndProcessesLosesNoLine)
{
    constexpr long processes = 3, threads = 8, count = 100;
    ScratchFolder folder;
    std::vector<std::unique_ptr<Child>> hosts;
    for (long first = 0; first < processes * threads * count; first += threads * count)
        hosts.push_back(std::make_unique<Child>(
            host_steps(folder, "", {"threads=" + std::to_string(first) + ':' + std::to_string(count)})));
    for (auto& host : hosts) {
        ASSERT_TRUE(host->wait());
        EXPECT_EQ(host->status(), 0) << host->errors();
    }
    LongNumbers logged(processes * threads); // by each thread: in its order, and all of them
    for (const long number : numbers_of(read_file(folder.file("log"))))
        EXPECT_EQ(logged.at(static_cast<size_t>(number / count))++, number % count);
    EXPECT_EQ(logged, LongNumbers(processes * threads, count));
}

TEST(Host, ShutsAnIdleSessionDownAtOnce)
{
    auto quickest = std::chrono::steady_clock::duration::max();
    for (int round = 0; round < 5; ++round) {
        Session session;
        const auto start = std::chrono::steady_clock::now();
        session.close();
        quickest = std::min(quickest, std::chrono::steady_clock::now() - start);
    }
    EXPECT_LT(quickest, std::chrono::seconds(1)) << "nothing waits for an interval or a poll";
}

TEST(Life, AHostMayExitAbortReturnOrForkAtAnyMoment)
{
    const LifeReport report = leave_again_and_again(6, 1);
    EXPECT_EQ(report.finding, "");
    EXPECT_GE(report.hosts, 36);
    EXPECT_GT(report.requests, report.hosts) << "uploads were under way";
}

TEST(Life, TheLibraryCanBeUnloadedUnderAnOpenSession)
{
    ScratchFolder folder;
    support::HttpServer server;
    const auto ended =
        support::run({host_program("dlopen_host"), library(), folder.path().string(), server.url(), "100"});
    ASSERT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(server.count(), 101u) << "a session that is open keeps the library";
    std::istringstream said(ended.output);
    long descriptors[2], threads[2], kilobytes[2];
    for (int i = 0; i < 2; ++i)
        said >> descriptors[i] >> threads[i] >> kilobytes[i];
    EXPECT_EQ(descriptors[0], descriptors[1]);
    EXPECT_EQ(threads[0], threads[1]);
#ifndef ANALYTICS_SANITIZED
    EXPECT_LT(kilobytes[1] - kilobytes[0], 2000) << ended.output;
#endif
}

TEST(Life, AHostMayUseLibcurlItself)
{
    ScratchFolder folder;
    support::HttpServer server;
    std::vector<std::string> steps = {"curl_start", "fetch", "fetch_beside"};
    std::string said;
    for (int round = 0; round < 4; ++round, said += "send 0\nstarted 0\nsend 0\n") {
        if (round == 3) // after the host's own use
            steps.insert(steps.end(), {"fetch_beside", "fetch", "curl_end"});
        // Its own start-up and clean-up in pairs, while the session has a transfer under way.
        steps.insert(steps.end(), {"open", "numbered=1:1", "send", "fetch", "numbered=2:2", "send_async", "curl_start",
                                   "fetch", "curl_end", "numbered=3:3", "send", "close"});
    }
    const auto ended = support::run(host_steps(folder, server.url(), steps));
    EXPECT_EQ(ended.output, said) << ended.errors;
    EXPECT_EQ(ended.status, 0);
}

TEST(Life, TwoThousandOpenDescriptorsAreNoObstacle)
{
    ScratchFolder folder;
    support::HttpServer server;
    const auto ended = support::run(host_steps(folder, server.url(),
                                               {"descriptors=2000", "open", "observe", "numbered=1:1", "send",
                                                "numbered=2:2", "send_async", "wait_until_heard", "close"}));
    EXPECT_EQ(sorted_lines(ended.output), "complete 0,send 0,started 0,") << ended.errors;
    EXPECT_EQ(server.count(), 2u);
}

TEST(Life, SigpipeIsNeitherCausedNorTouched)
{
    support::CertificateAuthority authority;
    const support::Certificate certificate = authority.issue({"127.0.0.1"});
    // Takes a little of a large request and resets the connection, so that the client writes to a closed one.
    support::RawServer plain([](support::RawServer::Connection& client) { client.read_some(1000), client.reset(); });
    for (const char* way : {"default", "ignored", "blocked"}) {
        ScratchFolder folder;
        support::write_file(folder.file("log"), std::string(8'000'000, 'x'));
        for (const bool tls : {false, true}) {
            support::HttpsServer secure(certificate, [](const support::Request&) { return support::Reply{}; });
            const support::CuttingRelay relay(secure.port(), support::CuttingRelay::unlimited, 1'000'000);
            const std::string url = tls ? "https://127.0.0.1:" + std::to_string(relay.port()) + "/" : plain.url();
            const auto ended =
                support::run(host_steps(folder, url,
                                        {"certificates=" + authority.file(), std::string("sigpipe=") + way, "open",
                                         "send", "send_async", "check_sigpipe", "close", "check_sigpipe"}));
            EXPECT_EQ(ended.status, 0) << way << tls;
            EXPECT_GT(tls ? relay.cuts() : plain.connections(), 0) << "nothing was cut";
            EXPECT_EQ(ended.output, "send 200\nstarted 0\nsigpipe kept\nsigpipe kept\n") << way << tls;
        }
        EXPECT_EQ(std::filesystem::file_size(folder.file("log")), 8'000'000u);
    }
}

TEST(Life, SignalsMayArriveInEveryWait)
{
    ScratchFolder folder;
    support::HttpServer server;
    std::vector<std::string> more = {"interrupt"};
    for (int round = 0; round < 10; ++round)
        more.insert(more.end(), {"open", "numbered=1:2", "send", "numbered=3:3", "send", "close"});
    more.insert(more.end(),
                {"open", "observe", "numbered=4:4", "send_async", "wait_until_heard", "close", "threads=0:200"});
    const auto ended = support::run(host_steps(folder, server.url(), more));
    EXPECT_EQ(ended.status, 0) << ended.errors;
    std::string expected = "complete 0,";
    for (int round = 0; round < 20; ++round)
        expected += "send 0,";
    EXPECT_EQ(sorted_lines(ended.output), expected + "started 0,");
    EXPECT_EQ(server.count(), 21u);
    EXPECT_EQ(numbers_of(read_file(folder.file("log"))).size(), 1600u);
}
