// Servers that fail in every way: unless the transfer ended with libcurl's success, the event log file is byte for byte
// what it was, nothing hangs beyond the time-outs (short ones here), and memory stays bounded.

#include "collector/form.h"
#include "support/certificates.h"
#include "support/cutting_relay.h"
#include "support/memory.h"
#include "support/session.h"
#include "transfers.h"

using namespace AnalyticsSDK;
using support::CuttingRelay;
using support::milliseconds;
using support::RawServer;
using Connection = RawServer::Connection;
using Clock = std::chrono::steady_clock;

namespace {

constexpr long shortened_ms = 200;
constexpr size_t unlimited = CuttingRelay::unlimited;

// A machine with a route, and time-outs that a test can wait for.
class ThreadsUploadFaults : public testing::Test
{
protected:
    ThreadsUploadFaults()
    {
        TransferSettings::total_timeout_ms = shortened_ms;
        TransferSettings::connect_timeout_ms = shortened_ms;
    }

    transfers::Network network;
    transfers::Settings settings;
};

enum class Sent
{
    taken,
    failed
};

// Sends and waits for the outcome, either way of sending.
Sent send(analytics_session* session, bool synchronous)
{
    if (synchronous)
        return analytics_send(session, 1) == ANALYTICS_OK ? Sent::taken : Sent::failed;
    static std::atomic<int> completed, failed;
    completed = failed = 0;
    const auto count = [](void* counter, uint32_t, double) { ++*static_cast<std::atomic<int>*>(counter); };
    analytics_observer_add(session, "complete", count, &completed);
    analytics_observer_add(session, "error", count, &failed);
    EXPECT_EQ(analytics_send(session, 0), ANALYTICS_OK);
    EXPECT_TRUE(support::wait_until([&] { return completed + failed > 0; })) << "no outcome was told";
    EXPECT_EQ(completed + failed, 1);
    return completed ? Sent::taken : Sent::failed;
}

// One upload of a file with `padding` to this address, sent both ways.
void expect_upload(const std::string& name, const std::string& url, Sent expected, const std::string& certificates = "",
                   size_t padding = 300)
{
    for (const bool synchronous : {true, false}) {
        SCOPED_TRACE(name + (synchronous ? ", synchronous" : ", asynchronous"));
        support::Session session(url, certificates);
        session.log_one();
        support::write_file(session.log(), support::read_file(session.log()) + std::string(padding, 'x') + "\n");
        const std::string before = support::read_file(session.log());
        const auto start = Clock::now();
        [[maybe_unused]] const double added =
            support::megabytes_added([&] { EXPECT_EQ(send(session, synchronous), expected); });
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(10)) << "a hang";
        EXPECT_EQ(support::read_file(session.log()), expected == Sent::taken ? "" : before);
#ifndef ANALYTICS_SANITIZED
        EXPECT_LT(added, 48) << "memory without bounds";
#endif
    }
}

void expect_upload(const std::string& name, RawServer::Script script, Sent expected, size_t padding = 300)
{
    RawServer server(std::move(script));
    expect_upload(name, server.url(), expected, "", padding);
}

RawServer::Script reply(const std::string& text)
{
    return [text](Connection& client) {
        if (client.read_request())
            client.send(text);
    };
}

const auto reset = [](Connection& client) { client.reset(); };
const auto hang = [](Connection& client) { client.hang(); };

RawServer::Script reply_then(const std::string& text, const RawServer::Script& then)
{
    return [text, then](Connection& client) {
        client.read_request();
        client.send(text);
        then(client);
    };
}

// After `start`, the same piece again and again for as long as the client takes it.
RawServer::Script endless(const std::string& start, const std::string& piece)
{
    return [start, piece](Connection& client) {
        client.read_request();
        client.send(start);
        while (client.send(piece)) {
        }
    };
}

const std::string ok = "HTTP/1.1 200 OK\r\n";

} // namespace

TEST_F(ThreadsUploadFaults, AResetAtAnyStageKeepsTheFile)
{
    expect_upload("at once", reset, Sent::failed);
    expect_upload(
        "within the request", [](Connection& client) { client.read_some(20), client.reset(); }, Sent::failed);
    expect_upload(
        "within a large request", [](Connection& client) { client.read_some(20'000), client.reset(); }, Sent::failed,
        8'000'000);
    static const std::pair<const char*, std::string> stages[] = {
        {"after the request", ""},
        {"within the status line", "HTTP/1.1 2"},
        {"after the status line", ok},
        {"within the headers", ok + "Content-Le"},
        {"after the headers", ok + "Content-Length: 10\r\n\r\n"},
        {"within the body", ok + "Content-Length: 10\r\n\r\n12345"},
        {"within a chunk", ok + "Transfer-Encoding: chunked\r\n\r\na\r\n123"},
        {"between chunks", ok + "Transfer-Encoding: chunked\r\n\r\n1\r\n1\r\n"}};
    for (const auto& [name, text] : stages)
        expect_upload(std::string("reset ") + name, reply_then(text, reset), Sent::failed);
}

TEST_F(ThreadsUploadFaults, HalfAResponseKeepsTheFile)
{
    expect_upload(
        "no answer", [](Connection& client) { client.read_request(); }, Sent::failed);
    expect_upload(
        "nothing read", [](Connection&) {}, Sent::failed);
    for (const char* status : {"400 Bad Request", "407 Proxy Authentication Required", "500 Internal Server Error"})
        expect_upload(std::string("cut behind ") + status, reply(std::string("HTTP/1.1 ") + status + "\r\n"),
                      Sent::failed);
    expect_upload("half a body", reply(ok + "Content-Length: 10\r\n\r\n12345"), Sent::failed);
    expect_upload("half a chunk", reply(ok + "Transfer-Encoding: chunked\r\n\r\nff\r\n123"), Sent::failed);
    expect_upload("no last chunk", reply(ok + "Transfer-Encoding: chunked\r\n\r\n1\r\n1\r\n"), Sent::failed);
    expect_upload("a chunk of no size", reply(ok + "Transfer-Encoding: chunked\r\n\r\nxyz\r\n"), Sent::failed);
    expect_upload("a length beyond numbers", reply(ok + "Content-Length: -5\r\n\r\n"), Sent::failed);
}

TEST_F(ThreadsUploadFaults, GarbageIsNoSuccessUnlessItComesAsOne)
{
    expect_upload("no HTTP at all", reply(std::string("\0\1\2garbage\xff\r\n\r\n", 14)), Sent::failed);
    expect_upload("an unknown version", reply("HTTP/7.7 200 OK\r\n\r\n"), Sent::failed);
    expect_upload("no number for a status", reply("HTTP/1.1 abc OK\r\n\r\n"), Sent::failed);
    expect_upload("an older version without an end", reply("HTTP/1.0 200 OK\r\n\r\ngarbage\xff\xfe"), Sent::taken);
    expect_upload("200 with a garbage body", reply(ok + "Content-Length: 5\r\n\r\n\xff\xfe{}\""), Sent::taken);
    expect_upload("a last 3xx without a target", reply("HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n"), Sent::taken);
}

TEST_F(ThreadsUploadFaults, WhatNeverEndsIsEndedWithinTheTimeOutAndWithinBounds)
{
    const std::string line = "X-Filling: " + std::string(1000, 'x') + "\r\n", block(60'000, 'x');
    expect_upload("silence", hang, Sent::failed);
    expect_upload("silence after the request", reply_then("", hang), Sent::failed);
    expect_upload("silence after the headers", reply_then(ok + "Content-Length: 10\r\n\r\n", hang), Sent::failed);
    expect_upload(
        "a large request that nobody reads",
        [](Connection& client) {
            support::wait_until([&] { return client.number() < 0; }, milliseconds(2 * shortened_ms));
        },
        Sent::failed, 8'000'000);
    const auto drip = [](Connection& client) { client.drip(std::string(100, 'x'), milliseconds(shortened_ms / 10)); };
    expect_upload("a drip of a body", reply_then(ok + "Content-Length: 100\r\n\r\n", drip), Sent::failed);
    expect_upload("a drip of a header", reply_then(ok + "X-Filling: ", drip), Sent::failed);
    expect_upload("endless headers", endless(ok, line), Sent::failed);
    expect_upload("an endless header", endless(ok + "X-Filling: ", block), Sent::failed);
    expect_upload("an endless status line", endless("HTTP/1.1 200 ", block), Sent::failed);
    expect_upload("endless interim answers", endless("", "HTTP/1.1 100 Continue\r\n\r\n"), Sent::failed);
    expect_upload("an endless body", endless(ok + "\r\n", block), Sent::failed);
    expect_upload("endless chunks", endless(ok + "Transfer-Encoding: chunked\r\n\r\n", "4\r\nxxxx\r\n"), Sent::failed);
    expect_upload("an endless trailer", endless(ok + "Transfer-Encoding: chunked\r\n\r\n0\r\n", line), Sent::failed);
}

TEST_F(ThreadsUploadFaults, ARedirectNeverLeavesHttp)
{
    RawServer elsewhere([](Connection& client) { client.send("220 welcome\r\n"); });
    support::ScratchFolder folder;
    support::write_file(folder.file("secret"), "text");
    const std::string port = "127.0.0.1:" + std::to_string(elsewhere.port()) + "/";
    for (const std::string& target : {"file://" + folder.file("secret"), "ftp://" + port, "ftps://" + port,
                                      "gopher://" + port, "dict://" + port, "telnet://" + port, "smtp://" + port,
                                      "imap://" + port, "ldap://" + port, "mqtt://" + port, "scp://" + port}) {
        const std::string head = "\r\nLocation: " + target + "\r\nContent-Length: 0\r\n\r\n";
        expect_upload("302 to " + target, reply("HTTP/1.1 302 Found" + head), Sent::failed);
        expect_upload("307 to " + target, reply("HTTP/1.1 307 Temporary" + head), Sent::failed);
    }
    EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(ThreadsUploadFaults, TlsCutInMidHandshakeKeepsTheFile)
{
    TransferSettings::total_timeout_ms = 5000; // the last row is a whole upload
    support::CertificateAuthority authority;
    support::HttpsServer server(authority.issue({"127.0.0.1"}));
    for (const size_t bytes : {size_t{0}, size_t{1}, size_t{5}, size_t{60}, size_t{500}, size_t{700}, unlimited}) {
        CuttingRelay relay(server.port(), bytes);
        expect_upload("cut after " + std::to_string(bytes) + " bytes",
                      "https://127.0.0.1:" + std::to_string(relay.port()) + "/",
                      bytes == unlimited ? Sent::taken : Sent::failed, authority.file());
        // On a busy machine one of the two ways to send may run out of time before its bytes are through.
        EXPECT_EQ(relay.cuts() > 0, bytes != unlimited) << bytes;
    }
    EXPECT_GE(server.count(), 2u); // a cut behind the handshake may let a request through whose answer is lost
}

TEST_F(ThreadsUploadFaults, AServerThatSpeaksNoTlsOrFallsSilentKeepsTheFile)
{
    support::CertificateAuthority authority;
    for (const auto& [name, script] :
         {std::pair<const char*, RawServer::Script>{"garbage",
                                                    [](Connection& client) { client.send("garbage\r\n\r\n"); }},
          {"plain HTTP", [](Connection& client) { client.send(ok + "Content-Length: 0\r\n\r\n"); }},
          {"an alert",
           [](Connection& client) {
               client.send({"\x15\3\3\0\2\2\x28", 7});
           }},
          {"silence", hang},
          {"a reset", [](Connection& client) { client.read_some(), client.reset(); }}}) {
        RawServer server(script);
        expect_upload(name, "https://127.0.0.1:" + std::to_string(server.port()) + "/", Sent::failed, authority.file());
    }
}
