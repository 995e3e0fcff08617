// Labels: threads, network
#include "HandleParameters.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <list>

#include "support/session.h"
#include "transfers.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::Session;
using support::wait_until;

namespace {

/// What observers heard, one text per call: "complete 0" ...
class Heard
{
public:
    void Add(const std::function<uint32_t(const char*, analytics_observer, void*)>& addTo,
             std::initializer_list<const char*> events)
    {
        for (const char* event : events) {
            observers.push_back({this, event});
            EXPECT_EQ(addTo(event, Note, &observers.back()), 0u);
        }
    }
    void Add(analytics_session* session, std::initializer_list<const char*> events)
    {
        Add([=](auto... observer) { return analytics_observer_add(session, observer...); }, events);
    }
    std::string Calls()
    {
        std::lock_guard hold(lock);
        return calls;
    }

private:
    static void Note(void* context, uint32_t value, double amount)
    {
        const auto& [heard, event] = *static_cast<std::pair<Heard*, const char*>*>(context);
        std::lock_guard hold(heard->lock);
        heard->calls += std::string(event) + ' ' + std::to_string(value) + (amount == 0.0 ? ", " : " at speed, ");
    }
    std::list<std::pair<Heard*, const char*>> observers;
    std::mutex lock;
    std::string calls;
};

} // namespace

TEST(Observers, HearAmountsAsSigned32Bits)
{
    static const std::pair<double, int32_t> cases[] = {
        {1.9, 1},
        {-0.9, 0},
        {-1.9, -1},
        {2147483647.9, INT32_MAX},
        {2147483648.0, INT32_MIN},
        {-2147483648.9, INT32_MIN},
        {-HUGE_VAL, INT32_MIN},
        {std::nan(""), INT32_MIN},
    };
    for (const auto& [amount, expected] : cases)
        EXPECT_EQ(static_cast<int32_t>(ObservedAmount(amount)), expected) << amount;
}

TEST(Observers, HearMappedCodesInOrderOfRegistration)
{
    HandleParameters session("");
    Heard heard;
    session.AddObserver("error", nullptr, nullptr); // skipped
    heard.Add([&](auto... observer) { return session.AddObserver(observer...); },
              {"error", "size", "progress", "complete", "progress"});
    for (const long code : {404, 407, 408, 414, 500, 0, -3})
        session.OnDownloadError("", code);
    session.OnProxyAuthenticationError("", 407, "proxy:1");
    session.OnDownloadCancel("");
    session.OnProgressUpdate("", 5.5, -1.0, 2.0);
    session.OnDownloadComplete("");
    EXPECT_EQ(heard.Calls(), "error 201, error 202, error 203, error 204, error 200, error 200, error 200, error 202, "
                             "size 4294967295, progress 5 at speed, progress 5 at speed, complete 0, ");
}

TEST(Observers, MayBeAddedByAnObserver)
{
    static HandleParameters session("");
    static int calls = 0;
    const analytics_observer add = [](void*, uint32_t, double) {
        ++calls;
        session.AddObserver("error", nullptr, nullptr);
        const std::vector<observerData> over_what_was_freed(2);
    };
    session.AddObserver("error", add, nullptr);
    session.AddObserver("error", add, nullptr);
    session.OnDownloadError("", 404);
    EXPECT_EQ(calls, 2);
}

TEST(Send, SynchronousTellsNoObserver)
{
    support::HttpServer server(500);
    Session session(server.url());
    Heard heard;
    heard.Add(session, {"complete", "error", "size", "progress"});
    session.log_one();
    const std::string before = read_file(session.log());
    EXPECT_EQ(analytics_send(session, 1), 200u);
    EXPECT_EQ(read_file(session.log()), before);
    server.answer(200);
    EXPECT_EQ(analytics_send(session, 2), 0u);
    EXPECT_FALSE(std::filesystem::exists(session.log()));
    EXPECT_EQ(analytics_send(session, 1), 0u) << "a request is made, although no event is waiting";
    EXPECT_EQ(server.requests().at(1).form.at("data"), before);
    EXPECT_EQ(server.requests().at(2).form.at("data"), "");
    std::filesystem::create_directory(session.log()); // cannot be read whole
    for (const uint32_t synchronous : {1, 0})
        EXPECT_EQ(analytics_send(session, synchronous), 200u);
    EXPECT_EQ(server.count(), 3u);
    EXPECT_EQ(heard.Calls(), "");
}

TEST(Send, AsynchronousDeletesTheFileBeforeItTells)
{
    const transfers::Network online;
    support::HttpServer server(404);
    Session session(server.url());
    Heard heard;
    heard.Add(session, {"complete", "error", "size"});
    session.log_one();
    const std::string sent = read_file(session.log());
    const auto hears = [&](const char* expected) {
        EXPECT_EQ(analytics_send(session, 0), 0u);
        EXPECT_TRUE(wait_until([&] { return heard.Calls() == expected; })) << heard.Calls();
    };
    hears("error 201, ");
    EXPECT_EQ(read_file(session.log()), sent);
    server.answer([](const support::Request&) { return support::Reply{200, "taken"}; });
    hears("error 201, size 5, complete 0, ");
    EXPECT_FALSE(std::filesystem::exists(session.log()));
    EXPECT_EQ(server.requests().at(1).form.at("data"), sent);
}

TEST(Send, AsynchronousIsRefusedWhereTheSystemGaveNoThread)
{
    pthread_attr_t usual, endless;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&endless);
    pthread_attr_setstacksize(&endless, size_t{1} << 46);
    pthread_setattr_default_np(&endless); // of stacks that no system has room for
    const Session session("http://127.0.0.1:1/");
    pthread_setattr_default_np(&usual);
    EXPECT_EQ(analytics_send(session, 0), 200u);
}
