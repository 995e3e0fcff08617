// Labels: network
#include "support/death.h"
#include "support/ports.h"
#include "support/scratch.h"
#include "transfers.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using namespace support;
using ::testing::UnorderedElementsAre;
using Connection = RawServer::Connection;

constexpr std::size_t megabyte = 1024 * 1024;

using WebClientRequests = TransferTest;

TEST_F(WebClientRequests, PostAFormWithTheFixedHeaderLines)
{
    RawServer taking("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    const std::string percents(3 * megabyte, '%'); // libcurl would ask before a body of this size
    for (const std::string& value : {std::string("1"), percents}) {
        Params params{{"b", value}, {"a", "x y"}, {"k&=", std::string("\0_~", 3)}};
        EXPECT_EQ("true 200", executed(taking.url(), RequestTypePost, &params));
        const std::string request = taking.requests().back();
        const std::size_t head = request.find("\r\n\r\n");
        EXPECT_THAT(
            split_lines(request.substr(0, head)),
            UnorderedElementsAre("POST / HTTP/1.1\r", "Host: 127.0.0.1:" + std::to_string(taking.port()) + "\r",
                                 "Connection: Keep-Alive\r", "Cache-Control: no-cache\r",
                                 "Accept: text/xml, application/xml, application/xhtml+xml, text/html;q=0.9, "
                                 "text/plain;q=0.8, text/css, image/png, image/jpeg, image/gif;q=0.8, "
                                 "application/x-shockwave-flash, video/mp4;q=0.9, flv-application/octet-stream;q=0.8, "
                                 "video/x-flv;q=0.7, audio/mp4, application/futuresplash, */*;q=0.5\r",
                                 "Content-Length: " + std::to_string(request.size() - head - 4) + "\r",
                                 "Content-Type: application/x-www-form-urlencoded"));
        if (value == percents)
            EXPECT_EQ(9 * megabyte + 24, request.size() - head - 4);
        else
            EXPECT_EQ("a=x%20y&b=1&k&==%00%5f%7e", request.substr(head + 4));
    }
}

TEST_F(WebClientRequests, AreGetsUnlessThereIsAFormToPost)
{
    Params none, form{{"text", "x y&z=%"}, {"bytes", std::string("a\0b", 3)}, {"empty", ""}};
    const struct
    {
        RequestType type;
        Params* params;
        const char* expected;
    } cases[] = {
        {RequestTypePost, nullptr, "GET "},          {RequestTypeGet, &event, "GET "},
        {RequestTypePostMultipart, nullptr, "GET "}, {RequestTypePost, &none, "POST 0"},
        {RequestTypePostMultipart, &none, "POST 0"}, {RequestTypePostMultipart, &form, "POST form"},
    };
    for (const auto& rule : cases) {
        EXPECT_EQ("true 200", executed(server.url(), rule.type, rule.params));
        EXPECT_EQ("complete", queued(server.url(), rule.type, rule.params));
        for (const Request& got : {server.requests().back(), server.requests().at(server.count() - 2)}) {
            const bool whole = !got.form.empty() && got.form == form;
            EXPECT_EQ(rule.expected, got.method + " " + (whole ? "form" : got.header("content-length")));
        }
    }
}

TEST_F(WebClientRequests, ReportTheStatusThatFailedThem)
{
    for (int status : {200, 204, 299, 400, 404, 408, 414, 500, 503}) {
        server.answer(status);
        const std::string code = std::to_string(status);
        EXPECT_EQ((status < 400 ? "true " : "false ") + code, executed(server.url(), RequestTypePost, &event));
        EXPECT_EQ(status < 400 ? "complete" : "error " + code, queued(server.url(), RequestTypePost, &event));
    }
    server.answer(407);
    EXPECT_EQ("false 407", executed(server.url()));
    EXPECT_EQ("login 407 ", queued(server.url()));
}

// Servers that answer wrongly, slowly or not at all are tested in upload_faults_test.cpp.
TEST_F(WebClientRequests, FailWhereNobodyIsToAnswer)
{
    HeldPort refusing;
    for (const std::string& url :
         {refusing.url(), std::string("http://"), std::string("http://no-such-host.invalid/"),
          std::string("gopher://127.0.0.1/"), std::string("file:///etc/hostname"), std::string()}) {
        EXPECT_EQ("false 0", executed(url, RequestTypePost, &event)) << url;
        EXPECT_EQ("error 0", queued(url, RequestTypePost, &event)) << url;
    }
    long status = -1;
    EXPECT_FALSE(client.ExecRequest(nullptr, nullptr, status, RequestTypeGet, nullptr));
    EXPECT_EQ(0, status);
}

// Answers with the status and a way to "/there", which answers `page`.
HttpServer::Handler redirect(int status, int page = 200)
{
    return [=](const Request& request) {
        return request.target == "/there" ? Reply{page} : Reply{status, "", {{"Location", "/there"}}};
    };
}

TEST_F(WebClientRequests, KeepAPostAPostAcrossRedirects)
{
    event["large"] = std::string(3 * megabyte, 'x');
    for (int status : {301, 302, 307, 308}) {
        server.answer(redirect(status));
        EXPECT_EQ("true 200", executed(server.url(), RequestTypePost, &event)) << status;
        EXPECT_EQ("complete", queued(server.url(), RequestTypePostMultipart, &event)) << status;
    }
    EXPECT_EQ(16u, server.count());
    for (const Request& request : server.requests()) {
        EXPECT_EQ("POST", request.method);
        EXPECT_EQ(event, request.form);
    }
}

TEST_F(WebClientRequests, JudgeAPostAnswered303ByThePageThatItLeadsTo)
{
    event["large"] = std::string(3 * megabyte, 'x');
    for (int page : {200, 404, 500}) {
        server.answer(redirect(303, page));
        const std::string code = std::to_string(page);
        EXPECT_EQ((page < 400 ? "true " : "false ") + code, executed(server.url(), RequestTypePost, &event));
        EXPECT_EQ(page < 400 ? "complete" : "error " + code, queued(server.url(), RequestTypePostMultipart, &event));
        EXPECT_EQ("GET", server.requests().back().method);
    }
    server.answer([](const Request&) { return Reply{303, "", {{"Location", "ftp://127.0.0.1/x"}}}; });
    EXPECT_EQ("false 303", executed(server.url(), RequestTypePost, &event));
}

TEST_F(WebClientRequests, FollowTenRedirects)
{
    int left = 0;
    server.answer([&](const Request&) {
        return left-- > 0 ? Reply{302, "", {{"Location", server.url()}}} : Reply{200};
    });
    left = 10;
    EXPECT_EQ("true 200", executed(server.url(), RequestTypePost, &event));
    left = 11;
    EXPECT_EQ("false 302", executed(server.url(), RequestTypePost, &event));
}

TEST_F(WebClientRequests, KeepATextOfSixteenMegabytesAtMost)
{
    server.answer([](const Request& request) {
        return Reply{200, std::string(16 * megabyte + (request.target == "/more"), 'x')};
    });
    for (const char* path : {"/just", "/more"}) {
        EXPECT_EQ("complete", queued(server.url(path), RequestTypePost, &event)) << "taken, however long the answer";
        EXPECT_EQ(16 * megabyte, ends.item(path[1] == 'j' ? "item 1" : "item 2").body.size());
    }
    std::ostringstream whole;
    EXPECT_EQ("true 200", executed(server.url("/more"), RequestTypeGet, nullptr, &whole)) << "the caller's own text";
    EXPECT_EQ(16 * megabyte + 1, whole.str().size());
}

TEST_F(WebClientRequests, WriteTheBodyIntoWhatTheCallerGave)
{
    ScratchFolder folder;
    server.answer([](const Request&) { return Reply{200, "body"}; });
    std::ofstream file(folder.file("body"), std::ios::binary), closed;
    std::filebuf terminal; // as std::cout has one in a host without the synchronisation with stdio
    std::ostream output(terminal.open(folder.file("terminal"), std::ios::out));
    std::stringstream at_its_end("read");
    at_its_end.ignore(10);
    for (std::ostream* out : std::initializer_list<std::ostream*>{&file, &at_its_end, &closed, &output, nullptr})
        EXPECT_EQ("true 200", executed(server.url(), RequestTypeGet, nullptr, out));
    EXPECT_EQ("read", at_its_end.str()) << "which takes nothing, and that is no failure of the request";
    EXPECT_FALSE(file.is_open()) << "closed once the expected length has come";
    EXPECT_EQ("body", read_file(folder.file("body")));
    EXPECT_TRUE(terminal.is_open()) << "neither file nor text by its type: the host's own affair";
    EXPECT_EQ("", read_file(folder.file("terminal")));
}

TEST_F(WebClientRequests, DownloadIntoAFileWithoutALimit)
{
    ScratchFolder folder;
    ends.reads_text = false;
    const auto downloaded = [&](const char* name) {
        EXPECT_TRUE(client.QueueFileForDownload(server.url().c_str(), folder.file(name).c_str(), &ends, name));
        return ends.of(name);
    };
    const std::string content = std::string("\0\r\n\xff", 4) + std::string(20 * megabyte, 'x');
    server.answer([&](const Request&) { return Reply{200, content}; });
    write_file(folder.file("old"), content + "older and longer");
    EXPECT_EQ("complete", downloaded("old"));
    EXPECT_TRUE(content == read_file(folder.file("old")));
    EXPECT_EQ("complete", downloaded("no/folder")) << "written nowhere, in silence";
    server.answer(404);
    EXPECT_EQ("error 404", downloaded("none"));
    EXPECT_EQ("", read_file(folder.file("none")));
}

TEST_F(WebClientRequests, ReportProgressPerBlock)
{
    double last_update = 0, before = 0;
    TransferSettings::clock = [] { // goes on by one whenever it is asked, on the client's thread
        static double asked = 0;
        return ++asked;
    };
    ends.on_end = [&](const char* id) { last_update = client.FindRequestByID(id)->GetLastUpdate(); };
    server.answer([](const Request&) { return Reply{200, std::string(megabyte, 'x')}; });
    EXPECT_EQ("complete", queued(server.url()));
    const auto steps = ends.item("item 1").progress;
    ASSERT_GT(steps.size(), 1u);
    EXPECT_GE(last_update, static_cast<double>(steps.size())) << "each block ends the silence";
    for (const Progress& step : steps) {
        EXPECT_GT(step.downloaded, std::exchange(before, step.downloaded));
        EXPECT_EQ(megabyte, step.total);
        EXPECT_GE(step.speed, 0);
    }
    EXPECT_EQ(megabyte, before);
    RawServer endless("HTTP/1.0 200 OK\r\n\r\nno length");
    EXPECT_EQ("complete", queued(endless.url()));
    EXPECT_EQ("no length", ends.item("item 2").body);
    EXPECT_EQ(-1.0, ends.item("item 2").progress.at(0).total);
}

TEST_F(WebClientRequests, MayBeQueuedFromEveryCallbackEvenFromOneThatThrows)
{
    ends.on_progress = [&](const char* id) {
        if (id == std::string("first")) {
            EXPECT_TRUE(queue(server.url(), "from progress"));
        }
    };
    ends.on_end = [&](const char* id) {
        if (id == std::string("first")) {
            EXPECT_TRUE(queue("http://", "from complete"));
        }
        if (id == std::string("from complete")) {
            EXPECT_TRUE(queue(server.url(), "from error"));
        }
        if (id == std::string("from error"))
            throw std::runtime_error("a host's fault");
    };
    EXPECT_TRUE(queue(server.url(), "first", RequestTypePost, &event));
    for (const char* id : {"first", "from progress"})
        EXPECT_EQ("complete", ends.of(id)) << id;
    EXPECT_EQ("error 0", ends.of("from complete"));
    EXPECT_TRUE(wait_until([&] { return client.FindRequestByID("from error") == nullptr; })) << "it ended once";
}

TEST_F(WebClientRequests, AreGivenUpWhenTheNetworkGoes)
{
    RawServer silent(hold_open);
    for (const char* id : {"one", "two"})
        ASSERT_TRUE(queue(silent.url(), id));
    ASSERT_TRUE(silent.wait_for_connections(2));
    EXPECT_EQ("complete", queued(server.url())) << "while others are held open";
    network.set(false);
    for (const char* id : {"one", "two"})
        EXPECT_EQ("error -3", ends.of(id));
    EXPECT_EQ("error -3", queued(silent.url()));
    EXPECT_EQ("true 200", executed(server.url())) << "a synchronous request does not ask";
}

// Of the transfers that CurlHandles lists. The server sends the beginning of a body, then a byte now and then until the
// client goes.
class WebClientCancels : public TransferTest
{
protected:
    RawServer endless{[](Connection& peer) {
        peer.read_request();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nbegin");
        peer.drip(std::string(100'000, 'x'), milliseconds(5));
    }};
    RawServer silent{hold_open};
};

TEST_F(WebClientCancels, ATransferById)
{
    std::atomic<int> blocks{0};
    ends.on_progress = [&](const char*) { ++blocks; };
    for (const char* id : {"/one", "/two", "/three"})
        ASSERT_TRUE(queue(endless.url(id), id));
    ASSERT_TRUE(wait_until([&] { return blocks >= 3; }));
    for (const char* nobody : {"/nobody", static_cast<const char*>(nullptr)})
        client.CancelDownloadByID(nobody);
    client.CancelDownloadByID("/two");
    EXPECT_EQ("cancel", ends.of("/two"));
    client.CancelDownload("http://nowhere/");
    client.CancelDownload(endless.url("/three").c_str());
    EXPECT_EQ("cancel", ends.of("/three"));
    EXPECT_EQ("pending", ends.of("/one", milliseconds(0)));
    client.CancelAllDownloads();
    EXPECT_EQ("cancel", ends.of("/one"));
}

TEST_F(WebClientCancels, AFileDownload)
{
    ScratchFolder folder;
    ends.reads_text = false;
    ends.on_progress = [&](const char* id) { client.CancelDownloadByID(id); };
    ASSERT_TRUE(client.QueueFileForDownload(endless.url().c_str(), folder.file("part").c_str(), &ends, "file"));
    EXPECT_EQ("cancel", ends.of("file"));
    EXPECT_EQ("begin", read_file(folder.file("part")).substr(0, 5));
}

TEST_F(WebClientCancels, NothingThatHasNoDataToCome)
{
    server.answer(204);
    ASSERT_TRUE(queue(server.url(), "taken", RequestTypePost, &event));
    client.CancelAllDownloads();
    EXPECT_EQ("complete", ends.of("taken")) << "the server took it, and there was no body to stop at";
    TransferSettings::total_timeout_ms = 300;
    ASSERT_TRUE(queue(silent.url(), "silent"));
    ASSERT_TRUE(silent.wait_for_connections(1));
    client.CancelDownloadByID("silent");
    EXPECT_EQ("error 0", ends.of("silent")) << "its time-out ends it";
}

TEST_F(WebClientCancels, EverythingWithoutAWordWhenItCloses)
{
    ASSERT_TRUE(queue(silent.url(), "silent"));
    ASSERT_TRUE(silent.wait_for_connections(1));
    client.Close();
    client.Close();
    EXPECT_EQ("pending", ends.of("silent", milliseconds(0)));
    EXPECT_EQ("true 200", executed(server.url())) << "a synchronous request needs no thread";
}

TEST(WebClient, PerformsWhatWasQueuedBeforeItStarted)
{
    Network network;
    HttpServer server(200);
    RawServer silent(hold_open);
    Ends ends;
    const auto queue_early = [&](IWebClient* client) {
        EXPECT_TRUE(client->QueueRequest(server.url().c_str(), &ends, RequestTypeGet, nullptr, "early"));
    };
    IWebClient* never_started = CreateWebClient();
    queue_early(never_started);
    never_started->Release();
    EXPECT_EQ(0u, server.count());
    IWebClient* busy = CreateWebClient();
    queue_early(busy);
    EXPECT_TRUE(busy->Init(false));
    EXPECT_TRUE(busy->QueueRequest("http://", nullptr, RequestTypeGet, nullptr, nullptr)) << "nobody is told";
    EXPECT_TRUE(busy->QueueRequest(silent.url().c_str(), nullptr, RequestTypeGet, nullptr, "held"));
    EXPECT_TRUE(silent.wait_for_connections(1));
    EXPECT_EQ("complete", ends.of("early"));
    busy->Release();
}

TEST(WebClientDeathTest, AbortsWhenTheStreamOfNoTextIsAskedFor)
{
    WebClient client;
    EXPECT_ASSERTION(client.GetStream("nobody"), "sdk/src/WebClientCurl", "NULL != pHandle");
}

} // namespace
