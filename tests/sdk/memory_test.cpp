// What running out of memory does to a host: every allocation fails in turn.
// Labels: threads, faults
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <nlohmann/json.hpp>

#include "AnalyticsSDK/SystemInfo.h"
#include "support/http_server.h"
#include "support/session.h"

namespace {

/// How many more allocations this thread gets; -1: as many as it wants.
thread_local long allowed = -1;
/// Whether only the next one fails then, or all from there on.
thread_local bool failsOnce = false;

} // namespace

// Not inlined: GCC takes what it then sees for mismatched pairs.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (allowed != 0)
        if (void* memory = std::malloc(size + 1)) {
            allowed -= allowed > 0;
            return memory;
        }
    allowed = failsOnce ? -1 : 0;
    throw std::bad_alloc();
}

// A sanitizer would otherwise pair its own form of this one with the forms of delete below.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

/// Opens a session that gets so many allocations. @return null when they were too few
analytics_session* Open(const support::ScratchFolder& folder, const std::string& url, long allocations)
{
    analytics_config config = {};
    support::set_field(config.upload_url, url);
    support::set_field(config.event_log_file, folder.file("log"));
    support::set_field(config.pid_file, folder.file("id"));
    support::set_field(config.certificate_file, std::string(200, 'c'));
    allowed = allocations;
    analytics_session* session = analytics_initialize(&config);
    allowed = -1;
    return session;
}

/// Does all that a session can do; observers come before its first send. @return how many of the calls were refused
int Refusals(analytics_session* session, const std::string& text, bool first)
{
    char copy[100];
    int refused = 0;
    const auto count = [&](uint32_t result) {
        result = result == 1 ? 0 : result; // not every machine has a model
        EXPECT_TRUE(result == 0 || result == 101 || result == 200 || (result >= 301 && result <= 401)) << result;
        refused += result != 0;
    };
    if (first)
        count(analytics_observer_add(session, "complete", nullptr, nullptr));
    count(analytics_event_begin(session, "event"));
    count(analytics_name_array_begin(session, "array"));
    count(analytics_string_add(session, text.c_str()));
    count(analytics_property_add(session, "model"));
    count(analytics_array_end(session));
    count(analytics_property_get(session, "hd_free", copy, sizeof copy));
    count(analytics_event_end(session));
    count(analytics_send(session, 1));
    count(analytics_send(session, 0));
    return refused;
}

} // namespace

TEST(Memory, ThatRunsOutWhileASessionIsOpenedGivesNoSession)
{
    support::ScratchFolder folder;
    analytics_session* session = nullptr;
    long allocations = 0;
    for (; session == nullptr; ++allocations)
        session = Open(folder, "", allocations);
    EXPECT_GT(allocations, 5);
    analytics_shutdown(session);
}

TEST(Memory, ThatIsNotThereIsNothingToTheProbes)
{
    for (const auto probe :
         {AnalyticsSDK::GetUUID, AnalyticsSDK::GetTimeZone, AnalyticsSDK::GetCPUType, AnalyticsSDK::GetTotalHardDrive,
          AnalyticsSDK::GetTotalVirtualMemory, AnalyticsSDK::GetCPUUsage, AnalyticsSDK::GetModel}) {
        char text[300] = "untouched";
        allowed = 0;
        const std::int32_t status = probe(text, sizeof text);
        allowed = -1;
        EXPECT_EQ(status == 0, strcmp(text, "untouched") != 0);
    }
}

TEST(Memory, ThatRunsOutCostsTheCallInHandOnly)
{
    support::HttpServer server;
    const std::string text(20'000, 't');
    int refused = 1;
    for (long allocations = 0; refused != 0; ++allocations)
        for (const bool once : {true, false}) {
            ASSERT_LT(allocations, 10'000);
            support::ScratchFolder folder;
            analytics_session* session = Open(folder, server.url(), -1);
            allowed = allocations;
            failsOnce = once;
            refused = Refusals(session, text, true);
            allowed = -1;
            EXPECT_EQ(analytics_event_end(session), 301u) << "left half built after " << allocations;
            EXPECT_EQ(Refusals(session, text, false), 0) << "after " << allocations;
            analytics_shutdown(session);
        }
    EXPECT_GT(server.count(), 20u);
    for (const support::Request& request : server.requests())
        for (const std::string& line : support::split_lines(request.form.at("data")))
            EXPECT_TRUE(nlohmann::json::accept(line)) << "a member was left half done: " << line.substr(0, 100);
}
