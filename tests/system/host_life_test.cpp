// The library in a host's life: sending, exiting in every way, forking, several hosts at once.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>

#include "support/child.h"
#include "support/http_server.h"
#include "support/session.h"
#include "system/programs.h"

using nlohmann::json;
using support::Child;
using support::read_file;
using support::ScratchFolder;
using support::Session;

namespace {

/// Runs a host to its end, which must be a good one. @return what it said
std::string RunHost(const ScratchFolder& folder, const std::string& url, const std::vector<std::string>& steps,
                    const support::ChildOptions& options = {})
{
    const support::Ended ended = support::run(host_steps(folder, url, steps), options);
    EXPECT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(ended.errors, "");
    return ended.output;
}

using Numbers = std::map<std::string, std::vector<int>>;

/// The numbers of a log's events by event name; every line must be one.
Numbers NumbersByName(const std::string& log)
{
    Numbers numbers;
    for (const std::string& line : support::split_lines(log)) {
        const json event = json::parse(line, nullptr, false);
        if (event.is_discarded() || event.size() != 7)
            ADD_FAILURE() << "no event: " << line;
        else
            numbers[event[5]].push_back(event[6].value("n", -1));
    }
    return numbers;
}

/// Of a host that forks: its child may leave its copy of the parent's connections where it is, unseen by a leak check.
support::ChildOptions ForkingHost()
{
    const char* options = getenv("ASAN_OPTIONS");
    return {{std::string("ASAN_OPTIONS=") + (options != nullptr ? options : "") + ":detect_leaks=0"}, {}, {}};
}

/// A server whose answer waits until the test is over.
struct SlowServer
{
    support::Reply Answer()
    {
        ++waiting;
        support::wait_until([this] { return over.load(); });
        return {};
    }
    bool WaitForRequest()
    {
        return support::wait_until([this] { return waiting > 0; });
    }
    std::atomic<int> waiting{0};
    std::atomic<bool> over{false};
};

} // namespace

TEST(ThreadsHost, MayLeaveInAnyWayAlsoWhileUploadsAreUnderWay)
{
    support::CertificateAuthority authority;
    const support::Certificate certificate = authority.issue({"127.0.0.1"});
    for (const bool tls : {false, true})
        for (const std::string send : {"say=nothing is sent", "send_async", "send_in_background"})
            for (const std::string ending : {"exit=0", "quick_exit=0", "say=returning", "close"}) {
                if (ending == "close" && send == "send_in_background")
                    continue; // two threads on one session is not allowed
                SCOPED_TRACE(send + ' ' + ending + (tls ? " over TLS" : ""));
                ScratchFolder folder;
                SlowServer slow;
                const auto answer = [&](const support::Request&) { return slow.Answer(); };
                std::unique_ptr<support::HttpServer> server(tls ? new support::HttpsServer(certificate, answer)
                                                                : new support::HttpServer(answer));
                Child host(host_steps(folder, server->url(),
                                      {"certificates=" + authority.file(), "open", "event=kept", send, "begin=open",
                                       "wait_for_file=" + folder.file("go"), ending}));
                EXPECT_TRUE(send[1] == 'a' || slow.WaitForRequest());
                support::write_file(folder.file("go"), "");
                EXPECT_TRUE(host.wait());
                EXPECT_EQ(host.status(), 0);
                EXPECT_EQ(host.errors(), "");
                EXPECT_EQ(NumbersByName(read_file(folder.file("log"))), (Numbers{{"kept", {1}}}));
                slow.over = true;
            }
}

TEST(ThreadsHost, ThatForksKeepsItsUploadsAndItsChildSendsNothingOfItsOwn)
{
    ScratchFolder folder;
    support::HttpServer server;
    const std::string said = RunHost(
        folder, server.url(),
        {"open", "event=parent", "fork=5", "event=child", "send", "send_async", "close", "exit=0", "send", "close"},
        ForkingHost());
    EXPECT_EQ(said, "send 200\nstarted 200\nchild 0\nsend 0\n");
    ASSERT_EQ(server.count(), 1u) << "the child's event travels with the parent's";
    EXPECT_EQ(NumbersByName(server.requests()[0].form.at("data")).size(), 2u);
}

TEST(ThreadsHost, MayForkWhileAnUploadIsUnderWayAndItsChildMayOpenASessionOfItsOwn)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer cannot follow threads that are started in a forked child";
#endif
    ScratchFolder folder;
    SlowServer slow;
    support::HttpServer server(
        [&](const support::Request& request) { return request.target == "/slow" ? slow.Answer() : support::Reply{}; });
    Child host(host_steps(folder, server.url("/slow"),
                          {"open", "event=parent", "send_in_background", "wait_for_file=" + folder.file("go"), "fork=6",
                           "close", "url=" + server.url("/quick"), "open", "event=child", "send", "close", "exit=0"}),
               ForkingHost());
    EXPECT_TRUE(slow.WaitForRequest());
    support::write_file(folder.file("go"), "");
    EXPECT_TRUE(host.wait_for_output("child 0\n")) << host.output();
    EXPECT_EQ(host.output(), "send 0\nchild 0\n");
    slow.over = true;
    EXPECT_TRUE(host.wait());
    EXPECT_EQ(host.status(), 0) << host.errors();
}

TEST(ThreadsHost, OfEightSessionsOnEightThreadsInSeveralProcessesLosesNoLine)
{
    constexpr int processes = 3, threads = 8, count = 100;
    ScratchFolder folder;
    std::vector<std::unique_ptr<Child>> hosts;
    for (int number = 0; number < processes; ++number)
        hosts.push_back(std::make_unique<Child>(
            host_steps(folder, "", {"threads=" + std::to_string(threads) + ':' + std::to_string(count)})));
    for (auto& host : hosts) {
        ASSERT_TRUE(host->wait());
        EXPECT_EQ(host->status(), 0) << host->errors();
    }
    const auto written = NumbersByName(read_file(folder.file("log")));
    EXPECT_EQ(written.size(), static_cast<size_t>(processes * threads));
    std::vector<int> all(count);
    std::iota(all.begin(), all.end(), 0);
    for (const auto& [writer, numbers] : written)
        EXPECT_EQ(numbers, all) << writer;
}

TEST(ThreadsHost, ShutsAnIdleSessionDownAtOnce)
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

TEST(ThreadsTls, DeliversOnlyToAServerThatTheGivenAuthoritiesVouchFor)
{
    support::CertificateAuthority authority, stranger("Stranger");
    support::HttpsServer server(authority.issue({"127.0.0.1"}));
    Session trusting(server.url(), authority.file()), wary(server.url(), stranger.file()), bare(server.url());
    for (Session* session : {&wary, &bare, &trusting}) { // the bare one has no file beside the program
        session->log_one();
        const std::string before = read_file(session->log());
        EXPECT_EQ(analytics_send(*session, 1), session == &trusting ? 0u : 200u);
        EXPECT_EQ(read_file(session->log()), session == &trusting ? "" : before);
        EXPECT_EQ(server.count(), session == &trusting ? 1u : 0u);
    }
}
