// Sessions that deliver in batches, against real servers. Which answer does what is told in cycle_test.cpp.
#include "lumo/tova/runtime.h"
#include "sdk/transfers.h"
#include "support/batches.h"
#include "support/raw_server.h"
#include "support/session.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

using support::HttpServer;
using support::RawServer;
using support::read_file;
using support::Reply;
using support::Request;
using support::Session;
using support::wait_until;

namespace {

/// A server that keeps every line once, as it should be.
struct Receiver
{
    std::mutex lock;
    support::Batches batches;
    size_t lines = 0, largest = 0, limit = SIZE_MAX;
    std::function<int()> before = [] { return 0; }; ///< an answer before anything is stored; 0: none
    HttpServer server{[this](const Request& request) { return Reply{take(request)}; }};

    int take(const Request& request)
    {
        if (const int status = before())
            return status;
        std::lock_guard hold(lock);
        largest = std::max(largest, request.body.size());
        if (request.body.size() > limit)
            return 413;
        const auto fresh = batches.take(request.form);
        lines += fresh ? fresh->size() : 0;
        return fresh ? 200 : 400;
    }
};

struct DeliveryTest : testing::Test
{
    transfers::Network network;
    Receiver receiver;

    static void set(analytics_session* session, const char* key, const char* value)
    {
        EXPECT_EQ(analytics_option_set(session, key, value), 0u) << key;
    }
    static analytics_stats stats(analytics_session* session)
    {
        analytics_stats figures;
        EXPECT_EQ(analytics_stats_get(session, &figures, sizeof figures), 0u);
        return figures;
    }
    static std::string last_error(analytics_session* session)
    {
        char text[300];
        EXPECT_EQ(analytics_last_error(session, text, sizeof text), 0u);
        return text;
    }
    template <typename Call>
    static double milliseconds_of(Call call)
    {
        const auto start = std::chrono::steady_clock::now();
        call();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
};

} // namespace

TEST_F(DeliveryTest, RequestSaysWhichLinesOfWhichBatchItBrings)
{
    Session session(receiver.server.url());
    support::write_file(session.log(), std::string("old\n\nto\0rn", 10)); // of the default mode
    set(session, "delivery", "batches");
    session.log_one();
    EXPECT_EQ(analytics_send(session, 1), 0u);
    ASSERT_EQ(receiver.server.count(), 2u);
    const auto requests = receiver.server.requests();
    std::string names;
    for (const auto& [name, value] : requests[0].form)
        names += name + " ";
    EXPECT_EQ(names, "b d data g n o s t v ");
    EXPECT_EQ(requests[0].body.find("&data=old%0a%0ato%00rn&g="), requests[0].body.find("&data="));
    const auto field = [&](size_t request, const char* name) { return requests[request].form.at(name); };
    EXPECT_EQ(field(0, "o") + field(0, "n") + field(0, "d"), "020");
    EXPECT_EQ(field(1, "o") + field(1, "n") + field(1, "d"), "010");
    EXPECT_LT(std::abs(std::stol(field(1, "s")) - std::stol(field(1, "b").substr(0, 12), nullptr, 16)), 10'000);
    EXPECT_EQ(receiver.lines, 3u);
    EXPECT_EQ(analytics_send(session, 1), 0u);
    EXPECT_EQ(receiver.server.count(), 2u) << "nothing waits: no request";
    EXPECT_EQ(stats(session).events_delivered, 3u);
    EXPECT_EQ(stats(session).bytes_waiting, 0u);
}

TEST_F(DeliveryTest, CallsRefuseWhatTheyCannotTake)
{
    Session session;
    char text[4];
    analytics_stats figures;
    std::memset(&figures, 1, sizeof figures);
    const auto set_option = [&](const char* key, const char* value) {
        return analytics_option_set(session, key, value);
    };
    EXPECT_EQ(set_option(nullptr, "1"), 500u);
    EXPECT_EQ(set_option("nosuch", "1"), 500u);
    EXPECT_EQ(set_option("sync", nullptr), 501u);
    EXPECT_EQ(set_option("sync", "always"), 501u);
    EXPECT_EQ(analytics_option_get(session, "nosuch", text, sizeof text), 500u);
    EXPECT_EQ(analytics_option_get(session, "sync", nullptr, 4), 501u);
    EXPECT_EQ(analytics_option_get(session, "sync", text, 0), 501u);
    EXPECT_EQ(analytics_option_get(session, "batch_bytes", text, sizeof text), 0u);
    EXPECT_STREQ(text, "262");
    EXPECT_EQ(analytics_stats_get(session, nullptr, 8), 501u);
    EXPECT_EQ(analytics_stats_get(session, &figures, 8), 0u);
    EXPECT_EQ(figures.events_accepted + (figures.events_failed & 1), 1u) << "8 bytes and no more";
    EXPECT_EQ(analytics_last_error(session, nullptr, 4), 501u);
    EXPECT_EQ(analytics_last_error(session, text, 0), 501u);
    EXPECT_EQ(analytics_send_for(nullptr, 0) + analytics_option_set(nullptr, "", ""), 200u);
}

TEST_F(DeliveryTest, EveryEventArrivesThatIsLoggedWhileASlowServerTakesItsTime)
{
    receiver.before = [] { return std::this_thread::sleep_for(std::chrono::milliseconds(20)), 0; };
    Session session(receiver.server.url());
    set(session, "delivery", "batches");
    set(session, "batch_bytes", "4096");
    set(session, "interval_ms", "10");
    for (int number = 0; number < 2783; ++number)
        session.log_one();
    EXPECT_EQ(analytics_send(session, 1), 0u);
    EXPECT_EQ(receiver.lines, 2783u);
}

TEST_F(DeliveryTest, WhatIsSealedByItsSizeIsSentSoonEachTime)
{
    Session session(receiver.server.url());
    set(session, "delivery", "batches");
    set(session, "batch_bytes", "4096");
    for (const uint64_t logged : {200u, 400u}) {
        for (int number = 0; number < 200; ++number)
            session.log_one();
        EXPECT_TRUE(wait_until([&] { return stats(session).events_delivered == logged; }));
    }
}

TEST_F(DeliveryTest, ALimitOnBodiesJamsNothing)
{
    receiver.limit = 1 << 20;
    Session session(receiver.server.url());
    std::string days;
    for (int number = 0; days.size() < 6'000'000; ++number)
        days += "[ 3, " + std::to_string(number) + ", \"" + std::string(200, '"') + "\" ]\n";
    support::write_file(session.log(), days);
    set(session, "delivery", "batches");
    set(session, "batch_bytes", "1048576"); // three times too much
    EXPECT_EQ(analytics_send(session, 1), 0u) << last_error(session);
    EXPECT_EQ(receiver.lines, support::split_lines(days).size());
    EXPECT_EQ(stats(session).events_dropped, 0u);
    EXPECT_EQ(stats(session).failures_in_a_row, 0u);
}

TEST_F(DeliveryTest, ASilentServerHoldsNobodyLongerThanAsked)
{
    RawServer silent(transfers::hold_open);
    for (const char* mode : {"batches", "whole"}) {
        Session session(silent.url());
        set(session, "delivery", mode);
        set(session, "close_ms", "200");
        session.log_one();
        EXPECT_LE(milliseconds_of([&] { EXPECT_EQ(analytics_send_for(session, 200), 206u) << mode; }), 300) << mode;
        const int before = silent.connections();
        set(session, "interval_ms", "10");
        EXPECT_TRUE(silent.wait_for_connections(before + 1)) << mode;
        EXPECT_LE(milliseconds_of([&] { session.close(); }), 300) << mode;
    }
}

TEST_F(DeliveryTest, ObserversHearOfTheEndOnce)
{
    Session session(receiver.server.url());
    set(session, "delivery", "batches");
    std::mutex lock;
    std::map<std::string, std::vector<uint32_t>> heard;
    struct Ear
    {
        std::mutex& lock;
        std::vector<uint32_t>& values;
    } complete{lock, heard["complete"]}, error{lock, heard["error"]};
    const auto hear = [](void* context, uint32_t value, double) {
        auto& ear = *static_cast<Ear*>(context);
        std::lock_guard hold(ear.lock);
        ear.values.push_back(value);
    };
    analytics_observer_add(session, "complete", hear, &complete);
    analytics_observer_add(session, "error", hear, &error);
    const auto count = [&](Ear& ear) {
        std::lock_guard hold(lock);
        return ear.values.size();
    };
    support::write_file(session.log(), "another batch\n");
    session.log_one();
    EXPECT_EQ(analytics_send(session, 0), 0u);
    EXPECT_TRUE(wait_until([&] { return count(complete) == 1; }));
    EXPECT_EQ(receiver.lines, 2u);
    receiver.before = [] { return 404; };
    session.log_one();
    EXPECT_EQ(analytics_send(session, 0), 0u);
    EXPECT_TRUE(wait_until([&] { return count(error) == 1; }));
    EXPECT_EQ(error.values[0], 201u);
    EXPECT_NE(last_error(session).find("(404)"), std::string::npos) << last_error(session);
    receiver.before = [] { return 0; };
    session.log_one();
    EXPECT_EQ(analytics_send(session, 0), 0u);
    session.close(); // which gives it time
    EXPECT_EQ(complete.values, (std::vector<uint32_t>{0, 0}));
    EXPECT_EQ(receiver.lines, 4u);
}

TEST_F(DeliveryTest, WhoWaitsForAServerThatAsksForAPauseSendsAfterIt)
{
    std::atomic<int> requests{0};
    receiver.server.answer([&](const Request& request) {
        return ++requests == 1 ? Reply{503, "", {{"Retry-After", "1"}}} : Reply{receiver.take(request)};
    });
    Session session(receiver.server.url());
    set(session, "delivery", "batches");
    session.log_one();
    EXPECT_EQ(analytics_send_for(session, 20), 206u);
    EXPECT_EQ(analytics_send(session, 1), 200u) << "while the server is to be spared";
    EXPECT_EQ(requests, 1);
    EXPECT_EQ(analytics_send_for(session, 20'000), 0u);
    EXPECT_EQ(receiver.lines, 1u);
}

TEST_F(DeliveryTest, ARefusedPackedBodyCostsOneRequest)
{
    for (const bool takesPacked : {true, false})
        for (const char* mode : {"batches", "whole"}) {
            std::atomic<int> packed{0}, plain{0};
            receiver.server.answer([&](const Request& request) {
                const bool isPacked = request.header("content-encoding") == "gzip";
                ++(isPacked ? packed : plain);
                return Reply{isPacked && !takesPacked ? 415 : 200};
            });
            Session session(receiver.server.url());
            set(session, "delivery", mode);
            set(session, "compress", "gzip");
            for (int round = 0; round < 2; ++round) {
                session.log_one();
                EXPECT_EQ(analytics_send(session, 1), 0u) << mode;
            }
            EXPECT_EQ(packed, takesPacked ? 2 : 1) << mode;
            EXPECT_EQ(plain, takesPacked ? 0 : 2) << mode;
        }
}

TEST_F(DeliveryTest, WhatWaitsGoesFirstWhenTheModeIsOffAgain)
{
    Session session(receiver.server.url());
    set(session, "delivery", "batches");
    session.log_one("in a batch");
    set(session, "delivery", "whole");
    session.log_one("in the file");
    EXPECT_EQ(analytics_send(session, 1), 200u) << "the server takes batches only";
    EXPECT_EQ(receiver.lines, 1u);
    EXPECT_EQ(receiver.server.count(), 2u);
    EXPECT_NE(read_file(session.log()).find("in the file"), std::string::npos);
}

TEST_F(DeliveryTest, TheWorkerRetriesUntilTheEventsAreTaken)
{
    static std::atomic<int> reports;
    reports = 0;
    tova_log_register([](int32_t level, const char* message) {
        reports += level == 2 && std::string(message).find("Upload failed: The server answered 503") == 0;
    });
    std::atomic<int> refusals{2};
    receiver.before = [&] { return refusals-- > 0 ? 503 : 0; };
    Session session(receiver.server.url());
    set(session, "delivery", "batches");
    set(session, "retry_first_ms", "20");
    session.log_one();
    set(session, "send_at_start", "yes");
    EXPECT_TRUE(wait_until([&] { return stats(session).events_delivered == 1; })) << last_error(session);
    EXPECT_EQ(reports, 2);
    EXPECT_EQ(stats(session).requests_failed, 2u);
    EXPECT_EQ(stats(session).requests, 3u);
    EXPECT_GT(stats(session).next_request_ms, stats(session).last_request_ms);
    tova_log_register(nullptr);
}

TEST_F(DeliveryTest, LastErrorNamesWhatFailed)
{
    const struct
    {
        std::string url, certificates, expected;
    } rows[] = {
        {"http://127.0.0.1:1/", "", "refused the connection"},
        {"http://nosuch.invalid/", "", "name was not found"},
        {"https://127.0.0.1:" + std::to_string(receiver.server.port()), "/nosuch.pem",
         "no certificate file at /nosuch.pem"},
    };
    for (const auto& row : rows)
        for (const char* mode : {"batches", "whole"}) {
            Session session(row.url, row.certificates);
            set(session, "delivery", mode);
            session.log_one();
            EXPECT_EQ(analytics_send(session, 1), 200u) << row.url;
            EXPECT_NE(last_error(session).find(row.expected), std::string::npos) << last_error(session);
            EXPECT_EQ(stats(session).last_status, 0);
        }
}
