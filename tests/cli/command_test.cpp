// The analytics command as its users meet it: a process, its output, its exit status.
// Labels: network
#include "support/child.h"
#include "support/http_server.h"
#include "support/ports.h"
#include "support/raw_server.h"
#include "support/scratch.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <unistd.h>

#include "AnalyticsSDK/Identity.h"

using support::Ended;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string command = TEST_BINARY_DIR "/cli/analytics";

class Command : public testing::Test
{
protected:
    /// Under an environment whose proxy must not be asked: nothing listens there.
    Ended run(std::vector<std::string> words, const std::string& input = "")
    {
        const std::string closed = "_proxy=http://127.0.0.1:1";
        words.insert(words.begin(), command);
        return support::run(words,
                            {{"http" + closed, "https" + closed, "all" + closed, "no_proxy"}, folder.path(), input});
    }

    /// What the command shows a person at a terminal of 60 columns, carriage returns included.
    std::string on_terminal(std::vector<const char*> words, std::vector<const char*> environment)
    {
        int terminal = -1;
        winsize size{24, 60, 0, 0};
        pid_t pid = forkpty(&terminal, nullptr, nullptr, &size);
        if (pid == 0) {
            words.insert(words.begin(), "analytics");
            words.push_back(nullptr);
            environment.push_back(nullptr);
            execve(command.c_str(), const_cast<char**>(words.data()), const_cast<char**>(environment.data()));
            _exit(127);
        }
        std::string output;
        char piece[4096];
        for (ssize_t count; (count = read(terminal, piece, sizeof piece)) > 0;)
            output.append(piece, static_cast<size_t>(count));
        close(terminal);
        waitpid(pid, nullptr, 0);
        return output;
    }

    /// The line of the last event that was logged, and its object.
    std::string last_line() { return support::split_lines(support::read_file(log)).back(); }
    std::string logged(std::vector<std::string> words)
    {
        words.insert(words.begin(), {"log", "e"});
        Ended ended = run(words);
        EXPECT_EQ(ended.status, 0) << ended.errors;
        std::string line = last_line();
        return line.substr(line.find("\"e\", ") + 5, line.size() - line.find("\"e\", ") - 7);
    }

    void log_events(int count)
    {
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(run({"log", "e", "n=" + std::to_string(i)}).status, 0);
    }

    support::ScratchFolder folder;
    const std::string log = folder.file("events.log");
};

bool exists(const std::string& path)
{
    return std::filesystem::exists(path);
}

} // namespace

TEST_F(Command, LogsValuesByTheirLooksOrByTheTypeGiven)
{
    const struct
    {
        const char *word, *text;
    } cases[] = {
        {"a=text", R"({ "a": "text" })"},
        {"a=", R"({ "a": "" })"},
        {"a=b=c", R"({ "a": "b=c" })"},
        {"a=true", R"({ "a": true })"},
        {"a=null", R"({ "a": null })"},
        {"a=-0", R"({ "a": 0 })"},
        {"a=9223372036854775807", R"({ "a": 9223372036854775807 })"},
        {"a=9223372036854775808", R"({ "a": 9.22337e+18 })"},
        {"a=1.50", R"({ "a": 1.5 })"},
        {"a=1e999", R"({ "a": "1e999" })"},
        {"a=007", R"({ "a": "007" })"},
        {"a=1.2.3", R"({ "a": "1.2.3" })"},
        {"a=nan", R"({ "a": "nan" })"},
        {"a:string=12", R"({ "a": "12" })"},
        {"a:int=007", R"({ "a": 7 })"},
        {"a:float=7", R"({ "a": 7 })"},
        {"a:float=nan", R"({ "a": nan })"},
        {"a:bool=false", R"({ "a": false })"},
        {"x.y.z=1", R"({ "x": { "y": { "z": 1 } } })"},
        {"x\\.y=1", R"({ "x.y": 1 })"},
        {"l[]=1", R"({ "l": [ 1 ] })"},
        {"l[\\]=1", R"({ "l[]": 1 })"},
    };
    for (const auto& [word, text] : cases)
        EXPECT_EQ(logged({word}), text) << word;
    EXPECT_EQ(logged({"o.a=1", "l[]=x", "o.b:string=2", "l[]=3", "o.l[]=4"}),
              R"({ "o": { "a": 1, "b": "2", "l": [ 4 ] }, "l": [ "x", 3 ] })");
    EXPECT_EQ(run({"show"}).status, 0);
}

TEST_F(Command, RefusesWordsThatMakeNoEvent)
{
    for (std::vector<std::string> words : std::vector<std::vector<std::string>>{{"plain"},
                                                                                {"=1"},
                                                                                {"a.=1"},
                                                                                {".a=1"},
                                                                                {"a=1", "a=2"},
                                                                                {"a=1", "a.b=2"},
                                                                                {"a.b=1", "a[]=2"},
                                                                                {"list[].a=1"},
                                                                                {"a[][]=1"},
                                                                                {"a:int=1.5"},
                                                                                {"a:float=x"},
                                                                                {"a:bool=1"},
                                                                                {"a:colour=red"}}) {
        words.insert(words.begin(), {"log", "e"});
        Ended ended = run(words);
        EXPECT_EQ(ended.status, 2) << words.back();
        EXPECT_THAT(ended.errors, HasSubstr(words.back().substr(0, words.back().find('=')))) << words.back();
    }
    EXPECT_FALSE(exists(log));
}

TEST_F(Command, LogsUnderOneIdThatItKeeps)
{
    ASSERT_EQ(run({"log", "one", "--app", "me", "--app-version", "7"}).status, 0);
    std::string id = support::read_file(log + ".id");
    EXPECT_EQ(id.size(), 36u);
    EXPECT_THAT(last_line(), HasSubstr(R"(", "me", "7", ")" + id + R"(", "one", { } ])"));
    ASSERT_EQ(run({"log", "two", "--property", "os_name", "--property", "arch"}).status, 0);
    EXPECT_THAT(last_line(), HasSubstr(id + R"(", "two", { "os_name": ")"));
    EXPECT_EQ(run({"log", "three", "--property", "arch", "--property", "nosuch"}).status, 1);
    EXPECT_THAT(last_line(), HasSubstr("\"two\"")) << "refused, and written all the same";
}

TEST_F(Command, SaysWhyAnEventCannotBeWritten)
{
    Ended ended = run({"log", "e", "--file", folder.file("missing/events.log")});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, HasSubstr("missing/events.log: No such file or directory"));
    ended = run({"log", "e", "--file", "/dev/full"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, HasSubstr("could not be written"));
    ended = run({"log", "e", "--id-file", folder.file("missing/id")});
    EXPECT_EQ(ended.status, 1) << "every event would have an id of its own";
    EXPECT_THAT(ended.errors, HasSubstr("missing/id: the unique id could not be kept"));
}

TEST_F(Command, ShowsATableThatPointsAtBrokenLines)
{
    logged({"c=\x1b[31m\xff", "n:float=-inf"});
    Ended ended = run({"show", log});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.errors, "");
    EXPECT_THAT(ended.output, HasSubstr(R"(e     { "c": "\x1b[31m\xff", "n": -inf })"));
    EXPECT_THAT(ended.output, Not(HasSubstr("\x1b")));
    ended = run({"show", "-"}, support::read_file(log) + "junk\n\n" + last_line());
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(support::split_lines(ended.output).size(), 3u) << ended.output;
    EXPECT_THAT(ended.errors, HasSubstr("-:2:1: expected \"[ \""));
    EXPECT_THAT(ended.errors, HasSubstr("-:3:1: the line ends too early"));
    EXPECT_THAT(ended.errors, HasSubstr("-:4:" + std::to_string(last_line().size() + 1) + ": the last line lacks"));
    EXPECT_THAT(ended.errors, HasSubstr("3 of 4 lines break the wire format"));
    ended = run({"show", "mis\x1bsing"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.errors, "analytics: mis\\x1bsing: No such file or directory\n");
}

TEST_F(Command, ShowsJsonThatAReaderTakes)
{
    EXPECT_EQ(run({"show", "--json", "-"}).output, "[]\n");
    logged({"c=\x1b\xff", "n:float=nan", "l[]=1"});
    log_events(1);
    auto json = nlohmann::json::parse(run({"show", "--json", log}).output);
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["event"], (nlohmann::json{{"c", "\x1b\xef\xbf\xbd"}, {"n", "nan"}, {"l", {1}}}));
    EXPECT_EQ(json[1]["version"], 3);
    EXPECT_EQ(json[1]["name"], "e");
}

TEST_F(Command, ColoursItsLinesOnATerminalOnly)
{
    logged({"long=" + std::string(300, 'x')});
    const std::vector<std::vector<const char*>> plain = {{}, {"TERM=dumb"}, {"TERM=xterm", "NO_COLOR=1"}};
    for (const auto& environment : plain)
        EXPECT_THAT(on_terminal({"show", log.c_str()}, environment), Not(HasSubstr("\x1b")));
    std::string output = on_terminal({"show", log.c_str()}, {"TERM=xterm", "NO_COLOR="});
    EXPECT_THAT(output, HasSubstr("\x1b[1mTIME (UTC)"));
    EXPECT_EQ(support::split_lines(output).at(1).size(), 61u) << output; // the terminal adds a carriage return
    EXPECT_THAT(on_terminal({"show", "missing"}, {"TERM=xterm"}), HasSubstr("\x1b[31manalytics: missing: No such"));
    EXPECT_THAT(run({"show", log}).output, HasSubstr(std::string(300, 'x')));
}

TEST_F(Command, FailsWhenItsOutputCannotBeWritten)
{
    logged({"long=" + std::string(100'000, 'x')});
    const std::string line = last_line() + "\n";
    for (int i = 0; i < 3; ++i)
        std::ofstream(log, std::ios::app) << line; // more than a pipe holds
    const std::string piped = command + " show " + log + " | head -c 10; exit ${PIPESTATUS[0]}";
    Ended ended = support::run({"bash", "-c", piped});
    EXPECT_EQ(ended.status, 128 + SIGPIPE);
    EXPECT_EQ(ended.output + ended.errors, "TIME (UTC)");
    for (std::string word : {"show " + log, "show --json " + log, std::string("properties"), std::string("--help")}) {
        ended = support::run({"bash", "-c", command + " " + word + " >/dev/full"});
        EXPECT_EQ(ended.status, 1) << word;
        EXPECT_EQ(ended.errors, "analytics: standard output could not be written\n") << word;
    }
}

TEST_F(Command, SendsTheWholeFileAsTheLibraryDoes)
{
    log_events(3);
    std::string text = support::read_file(log), id = support::read_file(log + ".id");
    support::HttpServer server;
    Ended ended = run({"send", log, "--url", server.url(), "--keep"});
    EXPECT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(ended.errors, "sending 3 events (" + std::to_string(text.size()) + " bytes) to " + server.url() + "\n");
    EXPECT_THAT(ended.output, HasSubstr("the server answered 200"));
    EXPECT_EQ(support::read_file(log), text);
    ASSERT_EQ(run({"send", "--url", server.url()}).status, 0);
    EXPECT_FALSE(exists(log));
    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    for (const support::Request& request : requests) {
        EXPECT_EQ(request.form.at("data"), text);
        EXPECT_EQ(request.form.at("g"), id);
        EXPECT_EQ(request.form.at("v"), "1.0.0");
        std::string token = request.form.at("t"), record;
        for (size_t i = 0; i + 1 < token.size(); i += 2)
            record += static_cast<char>(std::stoi(token.substr(i, 2), nullptr, 16));
        EXPECT_TRUE(AnalyticsSDK::TestHash(id.c_str(), reinterpret_cast<const unsigned char*>(record.data()),
                                           static_cast<long>(record.size())));
    }
    EXPECT_EQ(run({"send", log, "--url", server.url()}).status, 1); // nothing there
    EXPECT_EQ(run({"send", "-", "--url", server.url()}).status, 0); // nothing to send
    EXPECT_EQ(server.count(), 2u);
}

TEST_F(Command, SendsTheFileWithTheBatchesBesideIt)
{
    log_events(3);
    const std::string waiting = log + "." + std::string(32, '0') + ".0.batch";
    support::write_file(waiting, "[ 3, \"of a host\" ]\n");
    support::HttpServer server(503);
    Ended ended = run({"send", log, "--url", server.url(), "--batches", "--wait", "5"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.errors, HasSubstr("sending failed: The server answered 503"));
    server.answer(200);
    ended = run({"send", log, "--url", server.url(), "--batches"});
    EXPECT_EQ(ended.status, 0) << ended.errors;
    EXPECT_EQ(ended.output, "sent 4 events in 2 requests; 0 bytes wait\n");
    EXPECT_FALSE(exists(log) || exists(waiting));
    EXPECT_EQ(run({"send", "-", "--url", server.url(), "--batches"}).status, 1);
}

TEST_F(Command, KeepsEventsThatCameWhileItWasSending)
{
    log_events(1);
    support::HttpServer server([&](const support::Request&) {
        log_events(2);
        return support::Reply{};
    });
    EXPECT_EQ(run({"send", log, "--url", server.url()}).status, 0);
    auto lines = support::split_lines(support::read_file(log));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[1], HasSubstr("{ \"n\": 1 }"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2); // the log and its id
}

TEST_F(Command, KeepsANewFileThatAHostBeganAfterItsOwnUpload)
{
    log_events(3);
    support::HttpServer server([&](const support::Request&) {
        std::filesystem::remove(log);
        log_events(1);
        return support::Reply{};
    });
    EXPECT_EQ(run({"send", log, "--url", server.url()}).status, 0);
    EXPECT_EQ(support::split_lines(support::read_file(log)).size(), 1u);
    support::HttpServer deleting(
        [&](const support::Request&) { return std::filesystem::remove(log), support::Reply{}; });
    EXPECT_EQ(run({"send", log, "--url", deleting.url()}).status, 0);
}

TEST_F(Command, ShowsThatItIsWorkingOnOneLineOfATerminal)
{
    log_events(1);
    support::HttpServer server;
    const std::string url = server.url() + std::string(100, 'p'), before = "\r\x1b[K";
    const std::string working = "sending 1 event (" + std::to_string(last_line().size() + 1) + " bytes) to " + url;
    std::string output = on_terminal({"send", log.c_str(), "--keep", "--url", url.c_str()}, {"TERM=xterm"});
    EXPECT_EQ(output.rfind(before + working.substr(0, 50) + before, 0), 0u) << output;
    EXPECT_THAT(output, HasSubstr("the server answered 200"));
    output = on_terminal({"send", log.c_str(), "--keep", "--url", url.c_str()}, {"TERM=dumb"});
    EXPECT_EQ(output.rfind(working, 0), 0u) << output;
}

TEST_F(Command, TellsWhyTheFileCouldNotBeSent)
{
    log_events(1);
    std::string text = support::read_file(log);
    support::HttpServer refusing(503);
    support::HeldPort closed;
    support::RawServer cutting([](support::RawServer::Connection& client) {
        client.read_request();
        client.reset();
    });
    support::CertificateAuthority authority;
    support::HttpsServer secure(authority.issue({"127.0.0.1"}));
    support::HttpsServer stale(authority.issue({"127.0.0.1"}, support::expired));
    const struct
    {
        std::string url;
        const char* reason;
    } cases[] = {
        {refusing.url(), "the server answered 503"},
        {closed.url(), "Couldn't connect"},
        {cutting.url(), "Connection reset"},
        {"http://nosuch.invalid/", "Could not resolve"},
        {secure.url(), "cacert.pem (--certificates FILE names"},
        {stale.url(), "certificate has expired"},
        {"nonsense://x/", "rotocol \"nonsense\" not supported"},
        {"http://me:s/@cret@127.0.0.1:1/a", " to http://*****@127.0.0.1:1/a\n"},
        {"me:://cret@127.0.0.1:1", " to *****@127.0.0.1:1\n"},
        {"http://127.0.0.1:1/\x1b\xc2\x9b", " to http://127.0.0.1:1/\\x1b\\xc2\\x9b\n"},
    };
    for (const auto& [url, reason] : cases) {
        std::vector<std::string> words = {"send", log, "--url", url};
        if (url == stale.url())
            words.insert(words.end(), {"--certificates", authority.file()});
        Ended ended = run(words);
        EXPECT_EQ(ended.status, 1) << url;
        EXPECT_THAT(ended.errors, HasSubstr(reason)) << url;
        EXPECT_EQ(support::read_file(log), text);
    }
    EXPECT_EQ(run({"send", log, "--url", secure.url(), "--certificates", authority.file()}).status, 0);
}

TEST_F(Command, PrintsThePropertiesOfThisMachine)
{
    EXPECT_THAT(run({"properties"}).output, HasSubstr("os_name "));
    Ended ended = run({"properties", "--json"});
    EXPECT_FALSE(nlohmann::json::parse(ended.output).at("ram_total").get<std::string>().empty());
    ended = run({"properties", "nosuch", "arch"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.output, HasSubstr("arch  "));
    EXPECT_THAT(ended.errors, HasSubstr("nosuch: "));
}

TEST_F(Command, ForgetsTheIdOnlyWhenAsked)
{
    for (const bool withId : {false, true}) {
        ASSERT_EQ(run({"log", "e", "--file", log}).status, 0);
        std::ofstream(log + ".open") << "[ 3 ]\n";
        const std::string id = log + ".id";
        const Ended ended = withId ? run({"forget", log, "--id-file", id}) : run({"forget", log});
        EXPECT_EQ(ended.output, "nothing of " + log + " waits any more\n") << ended.errors;
        EXPECT_FALSE(std::ifstream(log).good());
        EXPECT_FALSE(std::ifstream(log + ".open").good());
        EXPECT_EQ(std::ifstream(id).good(), !withId);
    }
}

TEST_F(Command, ExplainsItsUsage)
{
    const struct
    {
        std::vector<std::string> words;
        const char *what, *help;
    } wrong[] = {
        {{}, "says what to do", "analytics help WORD"},
        {{"nosuch"}, "no word \"nosuch\"", "analytics help WORD"},
        {{"help", "nosuch"}, "no word \"nosuch\"", "analytics help WORD"},
        {{"--nosuch", "show"}, "no option \"--nosuch\"", "analytics help WORD"},
        {{"send", log}, "--url is required", "analytics help send"},
        {{"show", "--nosuch", log}, "--nosuch", "analytics help show"},
    };
    for (const auto& [words, what, help] : wrong) {
        Ended ended = run(words);
        EXPECT_EQ(ended.status, 2) << what;
        EXPECT_THAT(ended.errors, HasSubstr(what));
        EXPECT_THAT(ended.errors, HasSubstr(help)) << what;
    }
    EXPECT_EQ(run({"help"}).output, run({"--help"}).output);
    EXPECT_EQ(run({"--version"}).output, "analytics 1.0.0\n");
    std::string manual = support::read_file(TEST_SOURCE_DIR "/cli/analytics.1");
    for (const char* word : {"log", "show", "send", "forget", "properties", "help"}) {
        Ended ended = run({word, "--help"});
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(run({"help", word}).output, ended.output);
        EXPECT_THAT(ended.output, HasSubstr(std::string("analytics ") + word));
        EXPECT_THAT(manual, HasSubstr(std::string(".SS ") + word)) << "the manual lacks a word";
    }
}

TEST_F(Command, CompletesWhatIsTypedInBash)
{
    const struct
    {
        const char *line, *reply;
    } cases[] = {
        {"analytics s", "show send "},
        {"analytics help s", "show send "},
        {"analytics show --j", "--json "},
        {"analytics send --u", "--url "},
        {"analytics forget --i", "--id-file "},
        {"analytics properties hd", "hd_total hd_free "},
        {"analytics log e --property cpu_", "cpu_clock cpu_usage "},
        {"analytics log e --app ''", " "},
        {"analytics show ev", "events one.log "},
        {"analytics send --certificates ev", "events one.log "},
        {"analytics show ''", "events one.log "},
    };
    std::ofstream(folder.file("events one.log"));
    for (const auto& [line, reply] : cases) {
        std::string script = std::string("source " TEST_SOURCE_DIR "/cli/completion.bash; COMP_WORDS=(") + line +
                             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _analytics analytics "
                             "\"${COMP_WORDS[-1]}\" \"${COMP_WORDS[-2]}\"; printf '%s ' \"${COMPREPLY[@]}\"";
        EXPECT_EQ(support::run({"bash", "-c", script}, {{}, folder.path(), ""}).output, reply) << line;
    }
}
