#include "HandleParameters.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <list>
#include <mutex>

#include "TransferOptions.h"
#include "host/host.h"
#include "support/http_server.h"
#include "support/raw_server.h"
#include "support/session.h"
#include "support/wait.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::Session;
using support::wait_until;

namespace {

/// Queued transfers are given up on a machine without a route; these tests run on one all the same.
struct Online
{
    Online()
    {
        facts = host::system_facts();
        facts.reachability = [](uint32_t& flags) {
            flags = host::flag_reachable;
            return host::answer::found;
        };
        host::replacement = &facts;
    }
    ~Online() { host::replacement = nullptr; }
    host::source facts;
};

struct ShortTimeouts
{
    ShortTimeouts() { TransferSettings::total_timeout_ms = 200; }
    ~ShortTimeouts() { TransferSettings::total_timeout_ms = 60'000; }
};

/// What observers heard, one text per call: "complete 0 0" ...
struct Heard
{
    void Add(analytics_session* session, const char* event)
    {
        observers.push_back({this, event});
        EXPECT_EQ(analytics_observer_add(session, event, Note, &observers.back()), 0u);
    }
    static void Note(void* context, uint32_t value, double amount)
    {
        const Observer& observer = *static_cast<Observer*>(context);
        std::lock_guard hold(observer.heard->lock);
        observer.heard->calls.push_back(std::string(observer.event) + ' ' + std::to_string(value) +
                                        (amount == 0.0 ? "" : " at speed"));
    }
    std::vector<std::string> Calls()
    {
        std::lock_guard hold(lock);
        return calls;
    }
    struct Observer
    {
        Heard* heard;
        const char* event;
    };
    std::list<Observer> observers;
    std::mutex lock;
    std::vector<std::string> calls;
};

} // namespace

TEST(Observers, HearAmountsAsSigned32Bits)
{
    const double nan = std::numeric_limits<double>::quiet_NaN(), infinity = std::numeric_limits<double>::infinity();
    const struct
    {
        double amount;
        uint32_t value;
    } cases[] = {{0.0, 0},
                 {1.9, 1},
                 {-0.9, 0},
                 {-1.0, 0xffffffff},
                 {-1.9, 0xffffffff},
                 {1e6, 1'000'000},
                 {2147483647.9, 0x7fffffff},
                 {2147483648.0, 0x80000000},
                 {-2147483648.9, 0x80000000},
                 {-2147483649.0, 0x80000000},
                 {1e300, 0x80000000},
                 {nan, 0x80000000},
                 {infinity, 0x80000000},
                 {-infinity, 0x80000000}};
    for (const auto& c : cases)
        EXPECT_EQ(ObservedAmount(c.amount), c.value) << c.amount;
}

TEST(Observers, HearMappedCodesInOrderOfRegistration)
{
    HandleParameters session("");
    Heard heard;
    const auto add = [&](const char* event) {
        heard.observers.push_back({&heard, event});
        session.AddObserver(event, Heard::Note, &heard.observers.back());
    };
    session.AddObserver("error", nullptr, nullptr); // skipped
    add("error");
    add("size");
    add("progress");
    add("complete");
    add("progress");
    const struct
    {
        long code;
        int value;
    } cases[] = {{404, 201}, {407, 202}, {408, 203}, {414, 204}, {500, 200}, {0, 200}, {-3, 200}, {-7, 200}};
    for (const auto& c : cases) {
        heard.calls.clear();
        session.OnDownloadError("", c.code);
        EXPECT_EQ(heard.calls, std::vector<std::string>{"error " + std::to_string(c.value)}) << c.code;
    }
    heard.calls.clear();
    session.OnProxyAuthenticationError("", 407, "proxy:1");
    session.OnDownloadCancel("");
    session.OnProgressUpdate("", 5.5, -1.0, 2.0);
    session.OnDownloadComplete("");
    EXPECT_EQ(heard.calls, (std::vector<std::string>{"error 202", "size 4294967295", "progress 5 at speed",
                                                     "progress 5 at speed", "complete 0"}));
}

TEST(ThreadsSend, SynchronousTellsItsOutcomeAndNoObserver)
{
    const Online online;
    support::HttpServer server(500);
    Session session(server.url());
    Heard heard;
    for (const char* event : {"complete", "error", "size", "progress"})
        heard.Add(session, event);
    session.log_one();
    const std::string before = read_file(session.log());
    EXPECT_EQ(analytics_send(session, 1), 200u);
    EXPECT_EQ(read_file(session.log()), before);
    server.answer(200);
    EXPECT_EQ(analytics_send(session, 2), 0u);
    EXPECT_FALSE(std::filesystem::exists(session.log()));
    EXPECT_EQ(server.requests().at(1).form.at("data"), before);
    EXPECT_EQ(analytics_send(session, 1), 0u) << "a request is made, although no event is waiting";
    EXPECT_EQ(server.requests().at(2).form.at("data"), "");
    EXPECT_TRUE(heard.Calls().empty());
}

TEST(ThreadsSend, AsynchronousTellsTheObservers)
{
    const Online online;
    support::HttpServer server([](const support::Request&) { return support::Reply{200, "taken"}; });
    Session session(server.url());
    Heard heard;
    for (const char* event : {"complete", "error", "size"})
        heard.Add(session, event);
    session.log_one();
    const std::string sent = read_file(session.log());
    EXPECT_EQ(analytics_send(session, 0), 0u);
    ASSERT_TRUE(wait_until([&] { return heard.Calls().size() == 2; }));
    EXPECT_EQ(heard.Calls(), (std::vector<std::string>{"size 5", "complete 0"}));
    EXPECT_FALSE(std::filesystem::exists(session.log())) << "gone before the observers hear of it";
    EXPECT_EQ(server.requests().at(0).form.at("data"), sent);
}

TEST(ThreadsSend, AsynchronousKeepsTheFileAndMapsTheStatus)
{
    const Online online;
    const struct
    {
        int status;
        const char* heard;
    } cases[] = {{400, "error 200"}, {404, "error 201"}, {407, "error 202"},
                 {408, "error 203"}, {414, "error 204"}, {503, "error 200"}};
    for (const auto& c : cases) {
        support::HttpServer server(c.status);
        Session session(server.url());
        Heard heard;
        for (const char* event : {"complete", "error"})
            heard.Add(session, event);
        session.log_one();
        EXPECT_EQ(analytics_send(session, 0), 0u);
        ASSERT_TRUE(wait_until([&] { return !heard.Calls().empty(); }));
        EXPECT_EQ(heard.Calls(), std::vector<std::string>{c.heard}) << c.status;
        EXPECT_TRUE(std::filesystem::exists(session.log())) << c.status;
    }
}

TEST(ThreadsSend, GivesUpOnAServerThatAnswersTooLateOrNeverAndKeepsTheFile)
{
    const Online online;
    const ShortTimeouts shortTimeouts;
    support::RawServer server([](support::RawServer::Connection& c) {
        c.read_request();
        c.drip("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", support::milliseconds(50));
        c.hang();
    });
    Session session(server.url());
    Heard heard;
    for (const char* event : {"complete", "error"})
        heard.Add(session, event);
    session.log_one();
    const std::string before = read_file(session.log());
    EXPECT_EQ(analytics_send(session, 1), 200u);
    EXPECT_EQ(analytics_send(session, 0), 0u);
    ASSERT_TRUE(wait_until([&] { return !heard.Calls().empty(); }));
    EXPECT_EQ(heard.Calls(), std::vector<std::string>{"error 200"});
    EXPECT_EQ(read_file(session.log()), before);
}

TEST(ThreadsSend, IsRefusedWhileTheFileCannotBeReadWhole)
{
    support::HttpServer server;
    Session session(server.url());
    std::filesystem::create_directory(session.log());
    EXPECT_EQ(analytics_send(session, 1), 200u);
    EXPECT_EQ(analytics_send(session, 0), 200u);
    EXPECT_EQ(server.count(), 0u);
    EXPECT_TRUE(std::filesystem::exists(session.log()));
}

TEST(ThreadsSend, IsCutOffByShutdownWhileTheServerIsSilent)
{
    const Online online;
    support::RawServer server([](support::RawServer::Connection& c) {
        c.read_request();
        c.hang();
    });
    Session session(server.url());
    session.log_one();
    EXPECT_EQ(analytics_send(session, 0), 0u);
    ASSERT_TRUE(wait_until([&] { return !server.requests().empty(); }));
    session.close(); // does not wait for the time-out of a minute
    EXPECT_TRUE(std::filesystem::exists(session.log()));
}

TEST(ThreadsSend, MayBeStartedAgainFromAnObserver)
{
    const Online online;
    support::HttpServer server;
    Session session(server.url());
    struct Again
    {
        analytics_session* session;
        std::atomic<int> rounds{0};
    } again{session};
    analytics_observer_add(
        session, "complete",
        [](void* context, uint32_t, double) {
            auto& self = *static_cast<Again*>(context);
            if (++self.rounds < 3) {
                EXPECT_EQ(analytics_send(self.session, 0), 0u);
            }
        },
        &again);
    EXPECT_EQ(analytics_send(session, 0), 0u);
    EXPECT_TRUE(wait_until([&] { return again.rounds == 3; }));
    EXPECT_TRUE(server.wait_for(3));
}

TEST(ThreadsSend, CostsNoMemoryForTheServersAnswerHoweverLong)
{
    std::string block(1 << 20, 'x');
    support::RawServer server([&](support::RawServer::Connection& c) {
        c.read_request();
        c.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
        for (int megabyte = 0; megabyte < 200; ++megabyte)
            if (!c.send(block))
                return;
    });
    Session session(server.url());
    session.log_one();
    const auto peak_kb = [] {
        std::string status = read_file("/proc/self/status");
        return std::stol(status.substr(status.find("VmHWM:") + 6));
    };
    const long before = peak_kb();
    EXPECT_EQ(analytics_send(session, 1), 0u);
    EXPECT_LT(peak_kb() - before, 50'000);
}
