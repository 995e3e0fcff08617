// The library in hosts with a life of their own: leaving at any moment, loading and unloading, libcurl beside it, and
// the habits that a process may have.

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>

#include "support/certificates.h"
#include "support/child.h"
#include "support/cutting_relay.h"
#include "support/http_server.h"
#include "support/raw_server.h"
#include "support/scratch.h"
#include "system/life_run.h"
#include "system/programs.h"

using support::ScratchFolder;

TEST(ThreadsLife, AHostMayExitAbortReturnOrForkAtAnyMomentWithTransfersUnderWay)
{
    const LifeReport report = leave_again_and_again(host_program("steps_host"), 6, 1);
    EXPECT_EQ(report.finding, "");
    EXPECT_GE(report.hosts, 36);
    EXPECT_GT(report.requests, report.hosts) << "uploads were under way";
}

TEST(ThreadsLife, TheLibraryCanBeLoadedAndUnloadedAHundredTimesAndUnderAnOpenSession)
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

TEST(ThreadsLife, AHostMayUseLibcurlItselfBeforeDuringAndAfter)
{
    ScratchFolder folder;
    support::HttpServer server;
    const auto ended = support::run({host_program("curl_host"), folder.path().string(), server.url()});
    EXPECT_EQ(ended.status, 0) << ended.errors;
}

namespace {

// For what is said on two threads.
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

TEST(ThreadsLife, TwoThousandOpenDescriptorsAreNoObstacle)
{
    ScratchFolder folder;
    support::HttpServer server;
    const auto ended = support::run(host_steps(folder, server.url(),
                                               {"descriptors=2000", "open", "observe", "event=a", "send", "event=b",
                                                "send_async", "wait_until_heard", "close"}));
    EXPECT_EQ(sorted_lines(ended.output), "complete 0,send 0,started 0,") << ended.errors;
    EXPECT_EQ(server.count(), 2u);
}

TEST(ThreadsLife, SigpipeIsNeitherCausedNorTouched)
{
    support::CertificateAuthority authority;
    const support::Certificate certificate = authority.issue({"127.0.0.1"});
    // Takes a little of a large request and resets the connection: the client writes into nothing.
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

TEST(ThreadsLife, SignalsMayArriveInEveryWait)
{
    ScratchFolder folder;
    support::HttpServer server;
    std::vector<std::string> more = {"interrupt"};
    for (int round = 0; round < 10; ++round)
        more.insert(more.end(), {"open", "event=a", "event=b", "send", "event=c", "send", "close"});
    more.insert(more.end(), {"open", "observe", "event=d", "send_async", "wait_until_heard", "close", "threads=4:500"});
    const auto ended = support::run(host_steps(folder, server.url(), more));
    EXPECT_EQ(ended.status, 0) << ended.errors;
    std::string expected = "complete 0,";
    for (int round = 0; round < 20; ++round)
        expected += "send 0,";
    EXPECT_EQ(sorted_lines(ended.output), expected + "started 0,");
    EXPECT_EQ(server.count(), 21u);
    EXPECT_EQ(support::split_lines(support::read_file(folder.file("log"))).size(), 2000u);
}
