#include "AnalyticsSDK/EventManager.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <regex>

#include "AnalyticsSDK/Identity.h"
#include "AnalyticsSDK/Utilities.h"
#include "support/http_server.h"
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

TEST(EventManager, StartsWithAnHourAndEmptySettingsWhichNullTextsBringBack)
{
    EventManager manager(nullptr);
    EXPECT_EQ(manager.GetTimeout(), 3'600'000u);
    EXPECT_EQ(manager.GetLogVersion(), 0);
    const auto texts = [&] {
        return manager.GetEventLogFilePath() + '|' + manager.GetPidFilePath() + '|' + manager.GetApplicationId() + '|' +
               manager.GetApplicationVersion() + '|' + manager.GetLastLoggedEvent();
    };
    EXPECT_EQ(texts(), "||||");
    for (const char* text : {"text", static_cast<const char*>(nullptr)}) {
        manager.SetEventLogFilePath(text);
        manager.SetPidFilePath(text);
        manager.SetApplicationId(text);
        manager.SetApplicationVersion(text);
        manager.SetCertificateFile(text);
        EXPECT_EQ(texts(), text ? "text|text|text|text|" : "||||");
    }
    manager.SetTimeout(std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(manager.GetTimeout(), std::numeric_limits<uint32_t>::max());
}

TEST(EventLine, HoldsTheCommonFieldsAsTheyAreNowTheNameAndTheEvent)
{
    Manager manager;
    LogObject event;
    event.AddString("user", "a \"b\"\n");
    event.EndObject();
    const std::string object = R"({ "user": "a \"b\"\n" })";
    const auto logged = [&](auto name) {
        manager.LogEvent(name, &event);
        const std::string line = WithoutTime(support::split_lines(read_file(manager.log())).back());
        EXPECT_EQ(line.substr(line.size() - object.size() - 2), object + " ]");
        return line.substr(0, line.size() - object.size() - 4);
    };
    EXPECT_EQ(logged("start"), R"([ 3, TIME, "A", "1.0", "U", "start")");
    EXPECT_EQ(logged(7), R"([ 3, TIME, "A", "1.0", "U", 7)");
    EXPECT_EQ(logged(static_cast<const char*>(nullptr)), R"([ 3, TIME, "A", "1.0", "U", null)");
    EXPECT_EQ(logged("new\nline"), R"([ 3, TIME, "A", "1.0", "U", "new\nline")");
    manager.SetLogVersion(-4);
    EXPECT_EQ(logged(7), R"([ -4, TIME, "A", "1.0", "U", 7)");
    manager.SetApplicationId("B\t");
    EXPECT_EQ(logged(7), R"([ -4, TIME, "B\t", "1.0", "U", 7)");
    manager.SetApplicationVersion("");
    EXPECT_EQ(logged(7), R"([ -4, TIME, "B\t", "", "U", 7)");
    manager.SetUniqueId("V");
    EXPECT_EQ(logged(7), R"([ -4, TIME, "B\t", "", "V", 7)");
    write_file(manager.folder.file("id"), "W");
    ASSERT_TRUE(manager.LoadUniqueIdFromFile());
    EXPECT_EQ(logged(7), R"([ -4, TIME, "B\t", "", "W", 7)");
    write_file(manager.folder.file("id"), "X");
    manager.SetUniqueId("");
    EXPECT_EQ(logged(7), R"([ -4, TIME, "B\t", "", "X", 7)") << "an empty id is loaded";
    EXPECT_EQ(manager.GetLastLoggedEvent(), object);
}

TEST(EventLine, TellsTheTimeOfLoggingInUtc)
{
    Manager manager;
    manager.LogOne();
    std::string before, after;
    ASSERT_TRUE(GetCurrentDateTime(before, "%Y-%m-%d %H:%M:%S"));
    wait_until([&] { return GetCurrentDateTime(after, "%Y-%m-%d %H:%M:%S") && after != before; });
    manager.LogOne(); // in another second than the one before
    ASSERT_TRUE(GetCurrentDateTime(after, "%Y-%m-%d %H:%M:%S"));
    const auto lines = support::split_lines(read_file(manager.log()));
    EXPECT_LE(json::parse(lines[0])[1], before);
    EXPECT_GT(json::parse(lines[1])[1], before);
    EXPECT_LE(json::parse(lines[1])[1], after);
}

TEST(EventLine, IsNotWrittenForANullEventAndItsTextSurvivesALostLine)
{
    Manager manager;
    manager.LogOne();
    manager.LogEvent("none", nullptr);
    manager.LogEvent(1, nullptr);
    EXPECT_EQ(support::split_lines(read_file(manager.log())).size(), 1u);
    EXPECT_STREQ(manager.GetLastLoggedEvent(), "{ \"n\": 1 }");
    manager.SetEventLogFilePath("");
    LogObject lost;
    lost.EndObject();
    manager.LogEvent("lost", &lost);
    EXPECT_STREQ(manager.GetLastLoggedEvent(), "{ }");
    manager.AddCommonEventFields(); // between two events: changes nothing that is seen
    manager.SetEventLogFilePath(manager.log().c_str());
    manager.LogOne();
    EXPECT_EQ(WithoutTime(support::split_lines(read_file(manager.log())).at(1)),
              R"([ 3, TIME, "A", "1.0", "U", "start", { "n": 1 } ])");
}

TEST(ThreadsUpload, SendsTheFormThatTheServerUnderstands)
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

TEST(ThreadsUpload, OffersTheFileUntilTheServerTakesItAndMakesNoRequestForAnEmptyOne)
{
    support::HttpServer server;
    Manager manager(server.url());
    const auto process = [&](int status) {
        server.answer(status);
        manager.Process();
        return std::filesystem::exists(manager.log());
    };
    EXPECT_FALSE(process(200)) << "no file";
    write_file(manager.log(), "");
    EXPECT_TRUE(process(200)) << "an empty one stays";
    EXPECT_EQ(server.count(), 0u);
    std::string sent;
    for (const int status : {503, 400, 204}) {
        manager.LogOne(std::to_string(status).c_str());
        sent = read_file(manager.log());
        EXPECT_EQ(process(status), status != 204);
        EXPECT_EQ(read_file(manager.log()), status == 204 ? "" : sent);
        EXPECT_EQ(server.requests().back().form.at("data"), sent) << "with the older events";
    }
    EXPECT_EQ(support::split_lines(sent).size(), 3u);
    write_file(manager.log(), "   ");
    EXPECT_FALSE(process(201)) << "blanks are sent as an empty text";
    EXPECT_EQ(server.requests().back().form.at("data"), "");
    std::filesystem::create_directory(manager.log()); // can be opened and not read
    EXPECT_TRUE(process(200));
    EXPECT_EQ(server.count(), 4u) << "what cannot be read whole is neither sent nor deleted";
}

TEST(ThreadsUpload, OfStreamsSendsTheWholeTextAndLeavesTheFileToTheCaller)
{
    support::HttpServer server;
    Manager manager(server.url());
    std::stringstream stream;
    unsigned long size = 1;
    manager.LoadDataToSend(stream, size);
    EXPECT_EQ(size, 0u);
    write_file(manager.log(), "two\n  ");
    stream << "one\n";
    manager.LoadDataToSend(stream, size);
    EXPECT_EQ(size, 6u) << "of the file, blanks included";
    EXPECT_TRUE(manager.UploadData(stream));
    EXPECT_EQ(server.requests()[0].form.at("data"), "one\ntwo\n");
    server.answer(500);
    EXPECT_FALSE(manager.UploadData(stream));
    EXPECT_TRUE(std::filesystem::exists(manager.log()));
}

TEST(ThreadsUpload, RunsOnTheWorkerAtOnceWhenAskedAndAtEveryInterval)
{
    support::HttpServer server;
    Manager manager(server.url());
    manager.Init();
    manager.LogOne();
    EXPECT_EQ(server.count(), 0u);
    manager.StartUpload();
    ASSERT_TRUE(server.wait_for(1));
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

TEST(ThreadsUpload, LeavesEventsOfTheWindowToTheirFate)
{
    // Appended after the read and before the deletion: deleted with the file, and meant so.
    Manager* logging = nullptr;
    support::HttpServer server([&](const support::Request&) {
        logging->LogOne("in the window");
        return support::Reply{};
    });
    Manager manager(server.url());
    logging = &manager;
    manager.LogOne("before");
    manager.Process();
    EXPECT_FALSE(std::filesystem::exists(manager.log()));
    EXPECT_EQ(support::split_lines(server.requests()[0].form.at("data")).size(), 1u);
}
