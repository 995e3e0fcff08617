// Labels: threads, network
#include "AnalyticsSDK/EventManager.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <regex>

#include "AnalyticsSDK/Identity.h"
#include "AnalyticsSDK/Utilities.h"
#include "support/http_server.h"
#include "support/ports.h"
#include "support/scratch.h"

using namespace AnalyticsSDK;
using nlohmann::json;
using support::read_file;
using support::wait_until;
using support::write_file;

namespace {

/// An event manager with a folder, as analytics_initialize sets one up.
struct Manager : EventManager
{
    explicit Manager(const std::string& url = "") : EventManager(url.c_str())
    {
        SetEventLogFilePath(log().c_str());
        SetPidFilePath(folder.file("id").c_str());
        SetLogVersion(3);
        SetUniqueId("U");
        SetApplicationId("A");
        SetApplicationVersion("1.0");
    }
    ~Manager() override { Close(); }

    std::string log() const { return folder.file("log"); }
    void LogOne(const char* name = "start")
    {
        LogObject event;
        event.AddInt("n", 1);
        event.EndObject();
        LogEvent(name, &event);
    }

    support::ScratchFolder folder;
};

/// The lines of a log with the time taken out, once it has been found to be one.
std::string WithoutTime(const std::string& log)
{
    static const std::regex time(R"("\d{4}-\d\d-\d\d \d\d:\d\d:\d\d")");
    return std::regex_replace(log, time, "TIME");
}

} // namespace

TEST(EventManager, TakesNullTextsForEmptyOnes)
{
    EventManager manager(nullptr);
    manager.SetApplicationId("text");
    manager.SetApplicationId(nullptr);
    manager.SetEventLogFilePath(nullptr);
    manager.SetPidFilePath(nullptr);
    manager.SetApplicationVersion(nullptr);
    manager.SetCertificateFile(nullptr);
    EXPECT_EQ(manager.GetEventLogFilePath(), "");
    EXPECT_EQ(manager.GetPidFilePath(), "");
    EXPECT_STREQ(manager.GetApplicationId(), "");
    EXPECT_EQ(manager.GetApplicationVersion(), "");
    EXPECT_EQ(manager.GetTimeout(), 3'600'000u);
    manager.SetTimeout(std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(manager.GetTimeout(), std::numeric_limits<uint32_t>::max());
}

TEST(EventLine, HoldsTheCommonFieldsAsTheyAreNow)
{
    Manager manager;
    LogObject event;
    event.AddString("user", "a \"b\"\n");
    event.EndObject();
    const auto log = [&](auto name) { manager.LogEvent(name, &event); };
    log("new\nline");
    log(static_cast<const char*>(nullptr));
    log(7);
    manager.SetLogVersion(-4);
    log(7);
    manager.SetApplicationId("B\t");
    log(7);
    manager.SetApplicationVersion("");
    log(7);
    manager.SetUniqueId("V");
    log(7);
    write_file(manager.folder.file("id"), "W");
    ASSERT_TRUE(manager.LoadUniqueIdFromFile());
    log(7);
    write_file(manager.folder.file("id"), "X");
    manager.SetUniqueId(""); // an empty id is loaded
    log(7);
    std::string expected;
    for (const char* start :
         {R"(3, TIME, "A", "1.0", "U", "new\nline")", R"(3, TIME, "A", "1.0", "U", null)",
          R"(3, TIME, "A", "1.0", "U", 7)", R"(-4, TIME, "A", "1.0", "U", 7)", R"(-4, TIME, "B\t", "1.0", "U", 7)",
          R"(-4, TIME, "B\t", "", "U", 7)", R"(-4, TIME, "B\t", "", "V", 7)", R"(-4, TIME, "B\t", "", "W", 7)",
          R"(-4, TIME, "B\t", "", "X", 7)"})
        expected += std::string("[ ") + start + R"(, { "user": "a \"b\"\n" } ])" + '\n';
    EXPECT_EQ(WithoutTime(read_file(manager.log())), expected);
}

TEST(EventLine, TellsTheTimeOfLoggingInUtc)
{
    Manager manager;
    std::string logged, before, after;
    const auto now = [](std::string& text) { return GetCurrentDateTime(text, "%Y-%m-%d %H:%M:%S"); };
    for (int second = 0; second < 2; ++second) {
        wait_until([&] { return now(before) && before != after; }); // in another second than the event before
        manager.LogOne();
        ASSERT_TRUE(now(after));
        logged = json::parse(support::split_lines(read_file(manager.log())).back())[1];
        EXPECT_LE(before, logged);
        EXPECT_LE(logged, after);
    }
}

TEST(EventLine, IsNotWrittenForANullEvent)
{
    Manager manager;
    manager.LogEvent("none", nullptr);
    manager.LogEvent(1, nullptr);
    EXPECT_FALSE(std::filesystem::exists(manager.log()));
    manager.LogOne();
    manager.AddCommonEventFields(); // between two events: changes nothing that is seen
    manager.LogOne();
    manager.SetEventLogFilePath("");
    LogObject lost;
    lost.EndObject();
    manager.LogEvent("lost", &lost);
    EXPECT_STREQ(manager.GetLastLoggedEvent(), "{ }");
    const std::string line = R"([ 3, TIME, "A", "1.0", "U", "start", { "n": 1 } ])"
                             "\n";
    EXPECT_EQ(WithoutTime(read_file(manager.log())), line + line);
}

TEST(Upload, SendsTheFormThatTheServerUnderstands)
{
    support::HttpServer server;
    Manager manager(server.url());
    const std::string id = "id with ümlaut & more+", data = "[ 3, \"50% &=+?_~ \x01\xff\" ]\n";
    manager.SetUniqueId(id.c_str());
    write_file(manager.log(), data + "  ");
    manager.Process();
    ASSERT_EQ(server.count(), 1u);
    support::Request request = server.requests()[0];
    EXPECT_EQ(request.method + ' ' + request.target + ' ' + request.header("content-type"),
              "POST /collect application/x-www-form-urlencoded");
    EXPECT_TRUE(std::regex_match(request.body, std::regex("data=[^&]*&g=[^&]*&t=[0-9a-f]{112}&v=1.0")));
    std::vector<unsigned char> hash;
    for (size_t at = 0; at < 112; at += 2)
        hash.push_back(static_cast<unsigned char>(std::stoi(request.form["t"].substr(at, 2), nullptr, 16)));
    EXPECT_TRUE(TestHash(id.c_str(), hash.data(), static_cast<long>(hash.size())));
    request.form.erase("t");
    EXPECT_EQ(request.form, (support::Form{{"data", data}, {"g", id}, {"v", "1.0"}}));
}

TEST(Upload, OffersTheFileUntilTheServerTakesIt)
{
    support::HttpServer server;
    Manager manager(server.url());
    const auto stays = [&](int status) {
        server.answer(status);
        manager.Process();
        return std::filesystem::exists(manager.log());
    };
    EXPECT_FALSE(stays(200)) << "no file";
    write_file(manager.log(), "");
    EXPECT_TRUE(stays(200)) << "an empty one";
    for (const int status : {400, 204}) {
        manager.LogOne();
        EXPECT_EQ(stays(status), status == 400);
    }
    EXPECT_EQ(support::split_lines(server.requests().back().form.at("data")).size(), 2u) << "with the older event";
    write_file(manager.log(), "   ");
    EXPECT_FALSE(stays(201)) << "blanks are sent as an empty text";
    std::filesystem::create_directory(manager.log()); // can be opened and not read
    EXPECT_TRUE(stays(200));
    EXPECT_EQ(server.count(), 3u) << "what cannot be read whole is neither sent nor deleted";
}

TEST(Upload, OfStreamsLeavesTheFileToTheCaller)
{
    support::HttpServer server;
    Manager manager(server.url());
    std::stringstream stream;
    stream << "one\n";
    write_file(manager.log(), "two\n  ");
    unsigned long size = 1;
    manager.LoadDataToSend(stream, size);
    EXPECT_EQ(size, 6u) << "of the file, blanks included";
    EXPECT_TRUE(manager.UploadData(stream));
    EXPECT_EQ(server.requests()[0].form.at("data"), "one\ntwo\n");
    server.answer(500);
    EXPECT_FALSE(manager.UploadData(stream));
    EXPECT_TRUE(std::filesystem::exists(manager.log()));
}

TEST(Upload, RunsOnTheWorkerAtEveryInterval)
{
    support::HttpServer server;
    const support::HeldPort dead;
    setenv("http_proxy", dead.text().c_str(), 1); // not by it, from the very first cycle on
    Manager manager(server.url());
    manager.LogOne();
    manager.StartUpload();
    manager.Init();
    ASSERT_TRUE(server.wait_for(1));
    unsetenv("http_proxy");
    ASSERT_TRUE(wait_until([&] { return !std::filesystem::exists(manager.log()); }));
    manager.SetTimeout(1);
    manager.StartUpload(); // ends the hour's wait; the next ones are short
    manager.LogOne();
    EXPECT_TRUE(server.wait_for(2));
    manager.Close();
    manager.LogOne();
    manager.Process();
    EXPECT_TRUE(std::filesystem::exists(manager.log())) << "a cycle after the stop does nothing";
}
