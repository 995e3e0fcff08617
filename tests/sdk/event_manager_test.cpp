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
#include "support/raw_server.h"
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

TEST(EventManager, StartsWithAnHourAndEmptySettings)
{
    EventManager manager(nullptr);
    EXPECT_EQ(manager.GetTimeout(), 3'600'000u);
    EXPECT_EQ(manager.GetLogVersion(), 0);
    EXPECT_EQ(manager.GetEventLogFilePath() + manager.GetPidFilePath() + manager.GetApplicationId() +
                  manager.GetApplicationVersion() + manager.GetLastLoggedEvent(),
              "");
    manager.SetTimeout(5);
    EXPECT_EQ(manager.GetTimeout(), 5u);
    manager.SetTimeout(std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(manager.GetTimeout(), std::numeric_limits<uint32_t>::max());
}

TEST(EventManager, TakesNullTextsForEmptyOnes)
{
    Manager manager;
    manager.SetEventLogFilePath(nullptr);
    manager.SetPidFilePath(nullptr);
    manager.SetApplicationId(nullptr);
    manager.SetApplicationVersion(nullptr);
    manager.SetCertificateFile(nullptr);
    EXPECT_EQ(manager.GetEventLogFilePath() + manager.GetPidFilePath() + manager.GetApplicationId() +
                  manager.GetApplicationVersion(),
              "");
}

TEST(EventLine, HoldsTheCommonFieldsTheNameAndTheEvent)
{
    Manager manager;
    LogObject event;
    event.AddString("user", "a \"b\"\n");
    event.EndObject();
    manager.LogEvent("start", &event);
    manager.LogEvent(7, &event);
    manager.LogEvent(nullptr, &event);
    manager.LogEvent("new\nline", &event);
    const std::string object = R"({ "user": "a \"b\"\n" })";
    EXPECT_EQ(WithoutTime(read_file(manager.log())),
              R"([ 3, TIME, "A", "1.0", "U", "start", )" + object + " ]\n" + R"([ 3, TIME, "A", "1.0", "U", 7, )" +
                  object + " ]\n" + R"([ 3, TIME, "A", "1.0", "U", null, )" + object + " ]\n" +
                  R"([ 3, TIME, "A", "1.0", "U", "new\nline", )" + object + " ]\n");
    EXPECT_EQ(manager.GetLastLoggedEvent(), object);
}

TEST(EventLine, ShowsEverySettingFromTheNextEventOn)
{
    Manager manager;
    const auto lastLine = [&] {
        manager.LogOne();
        return WithoutTime(support::split_lines(read_file(manager.log())).back());
    };
    EXPECT_EQ(lastLine(), R"([ 3, TIME, "A", "1.0", "U", "start", { "n": 1 } ])");
    manager.SetLogVersion(-4);
    EXPECT_EQ(lastLine(), R"([ -4, TIME, "A", "1.0", "U", "start", { "n": 1 } ])");
    manager.SetApplicationId("B\t");
    EXPECT_EQ(lastLine(), R"([ -4, TIME, "B\t", "1.0", "U", "start", { "n": 1 } ])");
    manager.SetApplicationVersion("");
    EXPECT_EQ(lastLine(), R"([ -4, TIME, "B\t", "", "U", "start", { "n": 1 } ])");
    manager.SetUniqueId("V");
    EXPECT_EQ(lastLine(), R"([ -4, TIME, "B\t", "", "V", "start", { "n": 1 } ])");
    write_file(manager.folder.file("id"), "W");
    ASSERT_TRUE(manager.LoadUniqueIdFromFile());
    EXPECT_EQ(lastLine(), R"([ -4, TIME, "B\t", "", "W", "start", { "n": 1 } ])");
    manager.SetUniqueId("");
    EXPECT_EQ(lastLine(), R"([ -4, TIME, "B\t", "", "W", "start", { "n": 1 } ])") << "an empty id is loaded";
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

TEST(PendingEvents, AreAppendedToAStreamWithTheFilesLength)
{
    Manager manager;
    std::stringstream stream;
    unsigned long size = 1;
    manager.LoadDataToSend(stream, size);
    EXPECT_EQ(size, 0u);
    write_file(manager.log(), "b\n  ");
    stream << "a\n";
    manager.LoadDataToSend(stream, size);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(stream.str(), "a\nb\n");
}

TEST(ThreadsUpload, SendsTheFormThatTheServerUnderstands)
{
    support::HttpServer server;
    Manager manager(server.url());
    manager.SetUniqueId("id with ümlaut & more+");
    const std::string data = "[ 3, \"50% &=+?_~ \x01\xff\" ]\n";
    write_file(manager.log(), data + "  ");
    manager.Process();
    ASSERT_EQ(server.count(), 1u);
    const support::Request request = server.requests()[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/collect");
    EXPECT_EQ(request.header("content-type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(request.body.substr(0, 5), "data=") << "the fields come in the order of their names";
    EXPECT_LT(request.body.find("&g="), request.body.find("&t="));
    EXPECT_LT(request.body.find("&t="), request.body.find("&v="));
    ASSERT_EQ(request.form.size(), 4u);
    EXPECT_EQ(request.form.at("data"), data);
    EXPECT_EQ(request.form.at("g"), "id with ümlaut & more+");
    EXPECT_EQ(request.form.at("v"), "1.0");
    const std::string& token = request.form.at("t");
    ASSERT_EQ(token.size(), 112u);
    std::vector<unsigned char> record;
    for (size_t at = 0; at < token.size(); at += 2)
        record.push_back(static_cast<unsigned char>(std::stoi(token.substr(at, 2), nullptr, 16)));
    EXPECT_TRUE(TestHash("id with ümlaut & more+", record.data(), static_cast<long>(record.size())));
    EXPECT_FALSE(TestHash("U", record.data(), static_cast<long>(record.size())));
    EXPECT_FALSE(std::filesystem::exists(manager.log()));
}

TEST(ThreadsUpload, DeletesTheFileOnlyWhenTheServerTookIt)
{
    const struct
    {
        int status;
        bool taken;
    } cases[] = {{200, true},  {201, true},  {204, true},  {400, false}, {401, false}, {403, false}, {404, false},
                 {407, false}, {408, false}, {413, false}, {414, false}, {500, false}, {502, false}, {503, false}};
    for (const auto& c : cases) {
        support::HttpServer server(c.status);
        Manager manager(server.url());
        manager.LogOne();
        const std::string before = read_file(manager.log());
        manager.Process();
        EXPECT_EQ(server.count(), 1u) << c.status;
        EXPECT_EQ(std::filesystem::exists(manager.log()), !c.taken) << c.status;
        EXPECT_EQ(read_file(manager.log()), c.taken ? "" : before) << c.status;
    }
}

TEST(ThreadsUpload, OffersAFailedUploadAgainTogetherWithNewerEvents)
{
    support::HttpServer server(503);
    Manager manager(server.url());
    manager.LogOne("old");
    manager.Process();
    manager.LogOne("new");
    const std::string both = read_file(manager.log());
    server.answer(200);
    manager.Process();
    manager.Process(); // nothing is left: no request
    ASSERT_EQ(server.count(), 2u);
    EXPECT_EQ(server.requests()[1].form.at("data"), both);
}

TEST(ThreadsUpload, MakesNoRequestForAMissingOrEmptyFileButOneForBlanks)
{
    support::HttpServer server;
    Manager manager(server.url());
    manager.Process();
    write_file(manager.log(), "");
    manager.Process();
    EXPECT_EQ(server.count(), 0u);
    EXPECT_TRUE(std::filesystem::exists(manager.log()));
    write_file(manager.log(), "   ");
    manager.Process();
    ASSERT_EQ(server.count(), 1u);
    EXPECT_EQ(server.requests()[0].form.at("data"), "");
    EXPECT_FALSE(std::filesystem::exists(manager.log()));
}

TEST(ThreadsUpload, NeitherSendsNorDeletesWhatCannotBeReadWhole)
{
    support::HttpServer server;
    Manager manager(server.url());
    std::filesystem::create_directory(manager.log()); // can be opened and not read
    manager.Process();
    std::stringstream stream;
    unsigned long size = 1;
    manager.LoadDataToSend(stream, size);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(server.count(), 0u);
    EXPECT_TRUE(std::filesystem::exists(manager.log()));
}

TEST(ThreadsUpload, KeepsTheFileByteForByteWhateverBreaks)
{
    using Connection = support::RawServer::Connection;
    const struct
    {
        const char* what;
        support::RawServer::Script script;
    } cases[] = {
        {"reset on arrival", [](Connection& c) { c.reset(); }},
        {"closed after the request", [](Connection& c) { c.read_request(); }},
        {"reset after the request",
         [](Connection& c) {
             c.read_request();
             c.reset();
         }},
        {"half a status line",
         [](Connection& c) {
             c.read_request();
             c.send("HTTP/1.1 20");
         }},
        {"half a body",
         [](Connection& c) {
             c.read_request();
             c.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
         }},
        {"a redirect that never ends",
         [](Connection& c) {
             c.read_request();
             c.send("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
         }},
        {"a redirect to a file",
         [](Connection& c) {
             c.read_request();
             c.send("HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n");
         }},
    };
    for (const auto& c : cases) {
        support::RawServer server(c.script);
        Manager manager(server.url());
        manager.LogOne();
        const std::string before = read_file(manager.log());
        manager.Process();
        EXPECT_EQ(read_file(manager.log()), before) << c.what;
        EXPECT_GE(server.connections(), 1) << c.what;
    }
    support::HeldPort refused;
    Manager manager(refused.url());
    manager.LogOne();
    const std::string before = read_file(manager.log());
    manager.Process();
    EXPECT_EQ(read_file(manager.log()), before);
}

TEST(ThreadsUpload, IsRepeatedAsAPostWhereARedirectPointsExceptWhenTheAnswerSaysTaken)
{
    const struct
    {
        int status;
        const char* method; ///< of the request at the redirect's target
    } cases[] = {{301, "POST"}, {302, "POST"}, {303, "GET"}, {307, "POST"}, {308, "POST"}};
    for (const auto& c : cases) {
        support::HttpServer server([&](const support::Request& request) {
            return request.target == "/there" ? support::Reply{}
                                              : support::Reply{c.status, "", {{"Location", "/there"}}};
        });
        Manager manager(server.url());
        manager.LogOne();
        const std::string sent = read_file(manager.log());
        manager.Process();
        ASSERT_EQ(server.count(), 2u) << c.status;
        EXPECT_EQ(server.requests()[1].method, c.method) << c.status;
        EXPECT_EQ(server.requests()[1].form["data"], server.requests()[1].method == "POST" ? sent : "") << c.status;
        EXPECT_FALSE(std::filesystem::exists(manager.log())) << c.status;
    }
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

TEST(ThreadsUpload, OfStreamsSendsTheWholeTextAndLeavesTheFileToTheCaller)
{
    support::HttpServer server;
    Manager manager(server.url());
    manager.LogOne();
    std::stringstream stream;
    stream << "one\ntwo\n";
    EXPECT_TRUE(manager.UploadData(stream));
    EXPECT_EQ(server.requests()[0].form.at("data"), "one\ntwo\n");
    server.answer(500);
    EXPECT_FALSE(manager.UploadData(stream));
    EXPECT_TRUE(std::filesystem::exists(manager.log()));
}
