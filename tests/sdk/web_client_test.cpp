#include "support/death.h"
#include "support/ports.h"
#include "support/raw_server.h"
#include "support/scratch.h"
#include "transfers.h"

#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using support::HttpServer;
using support::RawServer;
using support::Reply;
using support::Request;
using support::wait_until;
using Connection = RawServer::Connection;

constexpr std::size_t megabyte = 1024 * 1024;

using WebClientRequests = TransferTest;

TEST_F(WebClientRequests, PostAFormWithEncodedValuesAndTheFixedHeaderLines)
{
    Params params{{"b", "1"}, {"a", "x y"}, {"k&=", std::string("\0_~", 3)}};
    EXPECT_EQ("true 200", executed(server.url(), RequestTypePost, &params));
    params["b"] = std::string(3 * megabyte, '%');
    EXPECT_EQ("complete", queued(server.url(), RequestTypePost, &params));
    const auto got = server.requests();
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ("a=x%20y&b=1&k&==%00%5f%7e", got[0].body);
    EXPECT_EQ(9 * megabyte + 24, got[1].body.size());
    for (const Request& request : got) {
        std::set<std::string> names;
        for (const auto& [name, value] : request.headers)
            names.insert(name);
        for (const char* of_the_server_library : {"local_addr", "local_port", "remote_addr", "remote_port"})
            names.erase(of_the_server_library);
        EXPECT_EQ(
            (std::set<std::string>{"accept", "cache-control", "connection", "content-length", "content-type", "host"}),
            names);
        EXPECT_EQ("application/x-www-form-urlencoded", request.header("content-type"));
        EXPECT_EQ("Keep-Alive", request.header("connection"));
        EXPECT_EQ("no-cache", request.header("cache-control"));
        EXPECT_EQ("text/xml, application/xml, application/xhtml+xml, text/html;q=0.9, text/plain;q=0.8, text/css, "
                  "image/png, image/jpeg, image/gif;q=0.8, application/x-shockwave-flash, video/mp4;q=0.9, "
                  "flv-application/octet-stream;q=0.8, video/x-flv;q=0.7, audio/mp4, application/futuresplash, "
                  "*/*;q=0.5",
                  request.header("accept"));
    }
}

TEST_F(WebClientRequests, PostAMultipartFormAsItIs)
{
    Params params{{"text", "x y&z=%"}, {"bytes", std::string("a\0b", 3)}, {"empty", ""}};
    EXPECT_EQ("true 200", executed(server.url(), RequestTypePostMultipart, &params));
    EXPECT_EQ("complete", queued(server.url(), RequestTypePostMultipart, &params));
    for (const Request& request : server.requests()) {
        EXPECT_EQ("POST", request.method);
        EXPECT_EQ(params, request.form);
    }
    EXPECT_EQ(2u, server.count());
}

TEST_F(WebClientRequests, AreGetsUnlessThereIsAFormToPost)
{
    Params none;
    executed(server.url(), RequestTypePost, nullptr);
    executed(server.url(), RequestTypeGet, &event);
    queued(server.url(), RequestTypePostMultipart, nullptr);
    queued(server.url(), RequestTypePost, &none);
    queued(server.url(), RequestTypePostMultipart, &none);
    std::string methods, lengths;
    for (const Request& request : server.requests()) {
        methods += request.method + " ";
        lengths += request.header("content-length") + " ";
    }
    EXPECT_EQ("GET GET GET POST POST ", methods);
    EXPECT_EQ("   0 0 ", lengths);
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

TEST_F(WebClientRequests, FailWhenNothingAnswersOrNotInTime)
{
    support::HeldPort refusing;
    RawServer closing([](Connection&peer) { peer.read_request(); }), silent(hold_open);
    RawServer slow([](Connection& peer) {
        peer.read_request();
        peer.drip("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(1000, 'x'), support::milliseconds(5));
    });
    TransferSettings::total_timeout_ms = 300;
    for (const std::string& url : {refusing.url(), closing.url(), silent.url(), slow.url(), std::string("http://"),
                                   std::string("http://no-such-host.invalid/"), std::string("gopher://127.0.0.1/"),
                                   std::string("file:///etc/hostname"), std::string()}) {
        const char* status = url == slow.url() ? "200" : "0";
        EXPECT_EQ(std::string("false ") + status, executed(url, RequestTypePost, &event)) << url;
        EXPECT_EQ(std::string("error ") + status, queued(url, RequestTypePost, &event)) << url;
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

TEST_F(WebClientRequests, CountAPostAsTakenAfter303WhateverThePageIsWorth)
{
    for (int page : {200, 404, 500}) {
        server.answer(redirect(303, page));
        EXPECT_EQ("true " + std::to_string(page), executed(server.url(), RequestTypePost, &event));
        EXPECT_EQ("complete", queued(server.url(), RequestTypePostMultipart, &event));
        EXPECT_EQ("GET", server.requests().back().method);
        EXPECT_EQ(page < 400 ? "complete" : "error " + std::to_string(page), queued(server.url()))
            << "a GET took nothing";
    }
    server.answer([](const Request& request) {
        return request.method == "GET" ? Reply{200, std::string(17 * megabyte, 'x')} : redirect(303)(request);
    });
    EXPECT_EQ("complete", queued(server.url(), RequestTypePost, &event)) << "even when it is too long to keep";
    server.answer([](const Request&) { return Reply{303, "", {{"Location", "ftp://127.0.0.1/x"}}}; });
    EXPECT_EQ("true 303", executed(server.url(), RequestTypePost, &event));
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

TEST_F(WebClientRequests, KeepATextOfSixteenMegabytesAndNoMore)
{
    server.answer([](const Request& request) {
        return Reply{200, std::string(16 * megabyte + (request.target == "/more"), 'x')};
    });
    EXPECT_EQ("complete", queued(server.url("/just")));
    EXPECT_EQ(16 * megabyte, ends.body("item 1").size());
    EXPECT_EQ("error 200", queued(server.url("/more")));
    std::ostringstream whole;
    EXPECT_EQ("true 200", executed(server.url("/more"), RequestTypeGet, nullptr, &whole)) << "the caller's own text";
    EXPECT_EQ(16 * megabyte + 1, whole.str().size());
}

TEST_F(WebClientRequests, WriteTheBodyIntoWhatTheCallerGave)
{
    support::ScratchFolder folder;
    server.answer([](const Request&) { return Reply{200, "body"}; });
    std::ofstream file(folder.file("body"), std::ios::binary), closed;
    std::stringstream text, at_its_end("read");
    at_its_end.ignore(10);
    for (std::ostream* out :
         {static_cast<std::ostream*>(&file), static_cast<std::ostream*>(&text), static_cast<std::ostream*>(&at_its_end),
          static_cast<std::ostream*>(&closed), static_cast<std::ostream*>(nullptr)})
        EXPECT_EQ("true 200", executed(server.url(), RequestTypeGet, nullptr, out));
    EXPECT_EQ("body", text.str());
    EXPECT_EQ("read", at_its_end.str()) << "which takes nothing, and that is no failure of the request";
    EXPECT_FALSE(file.is_open()) << "closed once the expected length has come";
    EXPECT_EQ("body", support::read_file(folder.file("body")));
}

TEST_F(WebClientRequests, DownloadIntoAFileWithoutALimit)
{
    support::ScratchFolder folder;
    ends.reads_text = false;
    std::string content(20 * megabyte, 'x');
    content.replace(7, 4, std::string("\0\r\n\xff", 4));
    server.answer([&](const Request&) { return Reply{200, content}; });
    support::write_file(folder.file("old"), "older and longer than nothing");
    for (const char* name : {"new", "old"}) {
        EXPECT_TRUE(client.QueueFileForDownload(server.url().c_str(), folder.file(name).c_str(), &ends, name));
        EXPECT_EQ("complete", ends.of(name));
        EXPECT_TRUE(content == support::read_file(folder.file(name))) << name;
    }
    EXPECT_TRUE(client.QueueFileForDownload(server.url().c_str(), folder.file("no/folder").c_str(), &ends, "lost"));
    EXPECT_EQ("complete", ends.of("lost")) << "written nowhere, in silence";
    server.answer(404);
    EXPECT_TRUE(client.QueueFileForDownload(server.url().c_str(), folder.file("none").c_str(), &ends, "none"));
    EXPECT_EQ("error 404", ends.of("none"));
    EXPECT_EQ("", support::read_file(folder.file("none")));
}

TEST_F(WebClientRequests, ReportProgressPerBlock)
{
    double last_update = 0;
    TransferSettings::clock = [] { // goes on by one whenever it is asked, on the client's thread
        static double asked = 0;
        return ++asked;
    };
    ends.on_end = [&](const char* id) { last_update = client.FindRequestByID(id)->GetLastUpdate(); };
    server.answer([](const Request&) { return Reply{200, std::string(megabyte, 'x')}; });
    EXPECT_EQ("complete", queued(server.url()));
    const auto steps = ends.progress("item 1");
    ASSERT_GT(steps.size(), 1u);
    EXPECT_GE(last_update, static_cast<double>(steps.size())) << "each block ends the silence";
    double before = 0;
    for (const Progress& step : steps) {
        EXPECT_GT(step.downloaded, before);
        EXPECT_EQ(megabyte, step.total);
        EXPECT_GE(step.speed, 0);
        before = step.downloaded;
    }
    EXPECT_EQ(megabyte, before);
    RawServer endless("HTTP/1.0 200 OK\r\n\r\nno length");
    EXPECT_EQ("complete", queued(endless.url()));
    EXPECT_EQ("no length", ends.body("item 2"));
    EXPECT_EQ(-1.0, ends.progress("item 2").at(0).total);
}

TEST_F(WebClientRequests, WorkWithoutAnyoneListening)
{
    EXPECT_TRUE(client.QueueRequest(server.url().c_str(), nullptr, RequestTypePost, &event, nullptr));
    EXPECT_TRUE(client.QueueRequest("http://", nullptr, RequestTypeGet, nullptr, nullptr));
    EXPECT_TRUE(server.wait_for(1));
    EXPECT_EQ("complete", queued(server.url())) << "and the client goes on";
}

TEST_F(WebClientRequests, MayBeQueuedFromEveryCallback)
{
    const std::map<std::string, std::pair<std::string, std::string>> next{
        {"first", {"from complete", "http://"}}, {"from complete", {"from error", server.url()}}};
    ends.on_end = [&](const char* id) {
        if (next.count(id)) {
            EXPECT_TRUE(queue(next.at(id).second, next.at(id).first.c_str()));
        }
    };
    ends.on_progress = [&](const char* id) {
        if (id == std::string("first")) {
            EXPECT_TRUE(queue(server.url(), "from progress"));
        }
    };
    EXPECT_TRUE(queue(server.url(), "first", RequestTypePost, &event));
    for (const char* id : {"first", "from progress", "from error"})
        EXPECT_EQ("complete", ends.of(id)) << id;
    EXPECT_EQ("error 0", ends.of("from complete"));
}

TEST_F(WebClientRequests, EndOnceEvenWhenTheirCallbackThrows)
{
    ends.on_end = [&](const char*) { throw std::runtime_error("a host's fault"); };
    for (const char* id : {"one", "two"})
        EXPECT_TRUE(queue(server.url(), id));
    for (const char* id : {"one", "two"})
        EXPECT_TRUE(wait_until([&] { return client.FindRequestByID(id) == nullptr; })) << id;
}

TEST_F(WebClientRequests, AreManyAtOnceWhileAnotherIsHeldOpen)
{
    RawServer holding(hold_open), answering("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_TRUE(queue(holding.url(), "held"));
    EXPECT_TRUE(holding.wait_for_connections(1));
    constexpr int many = 300;
    for (int at = 0; at < many; ++at)
        ASSERT_TRUE(queue(answering.url(), std::to_string(at).c_str(), RequestTypePost, &event));
    for (int at = 0; at < many; ++at)
        EXPECT_EQ("complete", ends.of(std::to_string(at)));
    EXPECT_EQ(static_cast<std::size_t>(many), answering.requests().size());
    EXPECT_EQ("pending", ends.of("held", support::milliseconds(0)));
}

TEST_F(WebClientRequests, AreGivenUpWhenTheNetworkGoes)
{
    RawServer silent(hold_open);
    for (const char* id : {"one", "two"})
        ASSERT_TRUE(queue(silent.url(), id));
    ASSERT_TRUE(silent.wait_for_connections(2));
    network.set(false);
    for (const char* id : {"one", "two"})
        EXPECT_EQ("error -3", ends.of(id));
    EXPECT_EQ("error -3", queued(silent.url()));
    EXPECT_EQ("true 200", executed(server.url())) << "a synchronous request does not ask";
}

// Sends the beginning of a body, then a byte now and then until the client goes.
class WebClientCancels : public TransferTest
{
protected:
    RawServer endless{[](Connection& peer) {
        peer.read_request();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nbegin");
        peer.drip(std::string(100'000, 'x'), support::milliseconds(5));
    }};
};

TEST_F(WebClientCancels, ATransferById)
{
    std::atomic<int> blocks{0};
    ends.on_progress = [&](const char*) { ++blocks; };
    for (const char* id : {"/one", "/two", "/three"})
        ASSERT_TRUE(queue(endless.url(id), id));
    ASSERT_TRUE(wait_until([&] { return blocks >= 3; }));
    client.CancelDownloadByID("/nobody");
    client.CancelDownloadByID(nullptr);
    client.CancelDownloadByID("/two");
    EXPECT_EQ("cancel", ends.of("/two"));
    client.CancelDownload("http://nowhere/");
    client.CancelDownload(endless.url("/three").c_str());
    EXPECT_EQ("cancel", ends.of("/three"));
    EXPECT_EQ("pending", ends.of("/one", support::milliseconds(0)));
    client.CancelAllDownloads();
    EXPECT_EQ("cancel", ends.of("/one"));
}

TEST_F(WebClientCancels, AFileDownloadAndClosesTheFile)
{
    support::ScratchFolder folder;
    ends.reads_text = false;
    ends.on_progress = [&](const char* id) { client.CancelDownloadByID(id); };
    ASSERT_TRUE(client.QueueFileForDownload(endless.url().c_str(), folder.file("part").c_str(), &ends, "file"));
    EXPECT_EQ("cancel", ends.of("file"));
    EXPECT_EQ("begin", support::read_file(folder.file("part")).substr(0, 5));
}

TEST_F(WebClientCancels, NothingThatHasNoDataToCome)
{
    server.answer(204);
    ASSERT_TRUE(queue(server.url(), "taken", RequestTypePost, &event));
    client.CancelAllDownloads();
    EXPECT_EQ("complete", ends.of("taken")) << "the server took it, and there was no body to stop at";
    RawServer silent(hold_open);
    TransferSettings::total_timeout_ms = 300;
    ASSERT_TRUE(queue(silent.url(), "silent"));
    ASSERT_TRUE(silent.wait_for_connections(1));
    client.CancelDownloadByID("silent");
    EXPECT_EQ("error 0", ends.of("silent")) << "its time-out ends it";
}

TEST_F(WebClientCancels, EverythingWithoutAWordWhenItCloses)
{
    RawServer silent(hold_open);
    ASSERT_TRUE(queue(silent.url(), "silent"));
    ASSERT_TRUE(silent.wait_for_connections(1));
    client.Close();
    client.Close();
    EXPECT_EQ("pending", ends.of("silent", support::milliseconds(0)));
    EXPECT_EQ("true 200", executed(server.url())) << "a synchronous request needs no thread";
}

TEST(WebClient, IsReleasedAtAnyStage)
{
    Network network;
    HttpServer server(200);
    RawServer silent(hold_open);
    IWebClient* never_started = CreateWebClient();
    EXPECT_TRUE(never_started->QueueRequest(server.url().c_str(), nullptr, RequestTypeGet, nullptr, "waits"));
    never_started->Release();
    IWebClient* busy = CreateWebClient();
    EXPECT_TRUE(busy->Init(false));
    EXPECT_TRUE(busy->QueueRequest(silent.url().c_str(), nullptr, RequestTypeGet, nullptr, "held"));
    EXPECT_TRUE(silent.wait_for_connections(1));
    busy->Release();
    EXPECT_EQ(0u, server.count());
}

TEST(WebClient, PerformsWhatWasQueuedBeforeItStarted)
{
    Network network;
    HttpServer server(200);
    Ends ends;
    WebClient client;
    EXPECT_TRUE(client.QueueRequest(server.url().c_str(), &ends, RequestTypeGet, nullptr, "early"));
    client.Init(true);
    EXPECT_EQ("complete", ends.of("early"));
    client.Close();
}

TEST(WebClientDeathTest, AbortsWhenTheStreamOfNoTextIsAskedFor)
{
    support::ScratchFolder folder;
    WebClient client;
    EXPECT_ASSERTION(client.GetStream("nobody"), "sdk/src/WebClientCurl", "NULL != pHandle");
    client.QueueFileForDownload("http://127.0.0.1/", folder.file("x").c_str(), nullptr, "file");
    EXPECT_ASSERTION(client.GetStream("file"), "sdk/src/WebClientCurl", "NULL != pStream");
}

} // namespace
