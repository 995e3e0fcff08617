// What every event begins with: stamps and context.
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>
#include <vector>

#include "support/session.h"

using nlohmann::json;
using support::Session;

TEST(Context, BeginsEveryLaterEventInTheOrderOfItsFirstSetting)
{
    const Session s;
    EXPECT_EQ(analytics_context_string_set(s, "user", "\"a\""), 0u);
    EXPECT_EQ(analytics_context_int64_set(s, "level", INT64_MIN), 0u);
    EXPECT_EQ(analytics_context_float64_set(s, "ratio", 0.5), 0u);
    EXPECT_EQ(analytics_context_bool_set(s, "paid", true), 0u);
    analytics_event_begin(s, "open");
    EXPECT_EQ(analytics_context_string_set(s, "user", nullptr), 0u); // while an event is open: from the next one
    EXPECT_EQ(analytics_context_remove(s, "level"), 0u);
    analytics_event_end(s);
    EXPECT_EQ(s.last_event(), R"({ "user": "\"a\"", "level": -9223372036854775808, "ratio": 0.5, "paid": true })");
    s.log_one();
    EXPECT_EQ(s.last_event(), R"({ "user": null, "ratio": 0.5, "paid": true, "n": 1 })");
    for (const char* name : {"user", "ratio", "paid", "never set"})
        EXPECT_EQ(analytics_context_remove(s, name), 0u);
    s.log_one();
    EXPECT_EQ(s.last_event(), R"({ "n": 1 })");
    EXPECT_EQ(analytics_context_remove(s, nullptr), 400u);
    EXPECT_EQ(analytics_context_bool_set(s, nullptr, true), 400u);
    EXPECT_EQ(analytics_context_bool_set(nullptr, "n", true), 100u);
    for (int at = 0; at < 64; ++at)
        EXPECT_EQ(analytics_context_int64_set(s, std::to_string(at).c_str(), at), 0u);
    EXPECT_EQ(analytics_context_int64_set(s, "one more", 1), 502u);
    EXPECT_EQ(analytics_context_int64_set(s, "63", 1), 0u); // one that is there
}

// Sixteen sessions at once, in one process: no member of one may show in another, no id comes twice.
TEST(ThreadsContext, OfSixteenSessionsIsEachItsOwn)
{
    struct Log
    {
        Session session;
        std::vector<json> events;
    };
    std::vector<Log> logs(16);
    std::vector<std::thread> threads;
    for (size_t at = 0; at < logs.size(); ++at)
        threads.emplace_back([&log = logs[at], at] {
            EXPECT_EQ(analytics_option_set(log.session, "stamp", "event,session,sequence,time_ms"), 0u);
            for (int64_t n = 0; n < 500; ++n) {
                analytics_context_int64_set(log.session, "of", static_cast<int64_t>(at));
                analytics_context_int64_set(log.session, "n", n);
                analytics_event_begin(log.session, "e");
                analytics_event_end(log.session);
                log.events.push_back(json::parse(log.session.last_event()));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::string> sessions, events;
    for (size_t at = 0; at < logs.size(); ++at) {
        std::string before;
        for (size_t n = 0; n < logs[at].events.size(); ++n) {
            const json& event = logs[at].events[n];
            EXPECT_EQ(event["of"], at);
            EXPECT_EQ(event["n"], n);
            EXPECT_EQ(event["sequence"], n + 1);
            EXPECT_NEAR(event["time_ms"].get<double>(), 1000.0 * static_cast<double>(time(nullptr)), 100'000);
            EXPECT_LT(before, event["event"].get<std::string>());
            before = event["event"];
            sessions.insert(event["session"]);
            events.insert(before);
        }
    }
    EXPECT_EQ(sessions.size(), 16u);
    EXPECT_EQ(events.size(), 16u * 500u);
    EXPECT_EQ(sessions.begin()->size(), 32u);
}
