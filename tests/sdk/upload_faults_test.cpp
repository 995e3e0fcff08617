// Servers that fail in every way: unless the transfer ended with libcurl's success, the event log file is byte for byte
// what it was, nothing hangs beyond the time-outs (short ones here), and memory stays bounded.
// Labels: threads, network, faults

#include "support/certificates.h"
#include "support/cutting_relay.h"
#include "support/session.h"
#include "transfers.h"

#include <cstdlib>
#include <fstream>

using namespace AnalyticsSDK;
using namespace support;
using Connection = RawServer::Connection;
using Clock = std::chrono::steady_clock;

namespace {

constexpr long shortened_ms = 200;
constexpr size_t large = 8'000'000;

/// The most memory that this process held since the last reset.
long peak_kilobytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

/// What a step adds to this process's memory at its highest.
template <class Step>
double megabytes_added(Step step)
{
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak starts anew
    const long before = peak_kilobytes();
    step();
    return static_cast<double>(peak_kilobytes() - before) / 1024;
}

struct Upload
{
    std::string name;
    RawServer::Script answer;
    size_t padding = 300; // of the file that is sent
};

// A machine with a route, and time-outs that a test can wait for.
class UploadFaults : public testing::Test
{
protected:
    UploadFaults()
    {
        TransferSettings::total_timeout_ms = shortened_ms;
        TransferSettings::connect_timeout_ms = shortened_ms;
    }

    // Sends and waits for the outcome, either way of sending: true when the server took it.
    static bool send(analytics_session* session, bool synchronous)
    {
        if (synchronous)
            return analytics_send(session, 1) == ANALYTICS_OK;
        static std::atomic<int> completed, failed;
        completed = failed = 0;
        const auto count = [](void* counter, uint32_t, double) { ++*static_cast<std::atomic<int>*>(counter); };
        analytics_observer_add(session, "complete", count, &completed);
        analytics_observer_add(session, "error", count, &failed);
        EXPECT_EQ(analytics_send(session, 0), ANALYTICS_OK);
        EXPECT_TRUE(wait_until([&] { return completed + failed > 0; })) << "no outcome was told";
        EXPECT_EQ(completed + failed, 1);
        return completed != 0;
    }

    void expect_upload(const std::string& name, const std::string& url, bool taken,
                       const std::string& certificates = "", size_t padding = 300)
    {
        for (const bool synchronous : {true, false}) {
            SCOPED_TRACE(name + (synchronous ? ", synchronous" : ", asynchronous"));
            Session session(url, certificates);
            session.log_one();
            write_file(session.log(), read_file(session.log()) + std::string(padding, 'x') + "\n");
            const std::string before = read_file(session.log());
            const auto start = Clock::now();
            [[maybe_unused]] const double added =
                megabytes_added([&] { EXPECT_EQ(send(session, synchronous), taken); });
            EXPECT_LT(Clock::now() - start, std::chrono::seconds(10)) << "a hang";
            EXPECT_EQ(read_file(session.log()), taken ? "" : before);
#ifndef ANALYTICS_SANITIZED
            EXPECT_LT(added, 48) << "memory without bounds";
#endif
        }
    }
    void expect_each(bool taken, const std::vector<Upload>& uploads)
    {
        for (const Upload& upload : uploads) {
            RawServer server(upload.answer);
            expect_upload(upload.name, server.url(), taken, "", upload.padding);
        }
    }

    transfers::Network network;
};

const RawServer::Script reset = [](Connection& client) { client.reset(); };
const RawServer::Script hang = [](Connection& client) { client.hang(); };

RawServer::Script reset_after(size_t bytes)
{
    return [bytes](Connection& client) { client.read_some(bytes), client.reset(); };
}

RawServer::Script reply(
    const std::string& text, const RawServer::Script& then = [](Connection&) {})
{
    return [text, then](Connection& client) {
        client.read_request();
        client.send(text);
        then(client);
    };
}

// Answers when it has read the beginning of a post, and serves the page that the answer may lead to.
RawServer::Script early(const std::string& answer)
{
    return [answer](Connection& client) {
        const bool post = client.read_some(20'000).starts_with("POST");
        client.send(post ? answer : "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    };
}

// The same piece again and again for as long as the client takes it.
RawServer::Script endless(const std::string& start, const std::string& piece)
{
    return reply(start, [piece](Connection& client) {
        while (client.send(piece)) {
        }
    });
}

const std::string ok = "HTTP/1.1 200 OK\r\n";
const std::string ten_bytes = ok + "Content-Length: 10\r\n\r\n", chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";

} // namespace

TEST_F(UploadFaults, AResetAtAnyStageKeepsTheFile)
{
    expect_each(false, {{"at once", reset},
                        {"within the request", reset_after(20)},
                        {"within a large request", reset_after(20'000), large},
                        {"after the request", reply("", reset)},
                        {"within the status line", reply("HTTP/1.1 2", reset)},
                        {"after the status line", reply(ok, reset)},
                        {"within the headers", reply(ok + "Content-Le", reset)},
                        {"after the headers", reply(ten_bytes, reset)},
                        {"within the body", reply(ten_bytes + "12345", reset)},
                        {"within a chunk", reply(chunked + "a\r\n123", reset)},
                        {"between chunks", reply(chunked + "1\r\n1\r\n", reset)}});
}

TEST_F(UploadFaults, HalfAResponseKeepsTheFile)
{
    expect_each(false, {{"no answer", reply("")},
                        {"nothing read", [](Connection&) {}},
                        {"cut within 100", reply("HTTP/1.1 100 Continue\r\n")},
                        {"cut within 103", reply("HTTP/1.1 103 Early Hints\r\nLink: <x>\r\n")},
                        {"half a status behind 100", reply("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 20")},
                        {"cut behind 400", reply("HTTP/1.1 400 Bad Request\r\n")},
                        {"cut behind 407", reply("HTTP/1.1 407 Proxy Authentication Required\r\n")},
                        {"cut behind 500", reply("HTTP/1.1 500 Internal Server Error\r\n")},
                        {"half a body", reply(ten_bytes + "12345")},
                        {"half a chunk", reply(chunked + "ff\r\n123")},
                        {"no last chunk", reply(chunked + "1\r\n1\r\n")},
                        {"a chunk of no size", reply(chunked + "xyz\r\n")},
                        {"a length beyond numbers", reply(ok + "Content-Length: -5\r\n\r\n")}});
}

// To libcurl, which stops sending then, all of these are successes: CurlHandles compares what was sent with the length.
TEST_F(UploadFaults, AnAnswerBeforeTheWholeRequestWasSentKeepsTheFile)
{
    const std::string there = "Location: /there\r\nContent-Length: 0\r\n\r\n";
    expect_each(false, {{"200 without an end", early("HTTP/1.0 200 OK\r\n\r\n"), large},
                        {"200 that closes", early(ok + "Connection: close\r\nContent-Length: 0\r\n\r\n"), large},
                        {"303", early("HTTP/1.1 303 See Other\r\n" + there), large},
                        {"303 that closes", early("HTTP/1.1 303 See Other\r\nConnection: close\r\n" + there), large}});
}

TEST_F(UploadFaults, GarbageIsNoSuccessUnlessItComesAsOne)
{
    expect_each(false, {{"no HTTP at all", reply(std::string("\0\1\2garbage\xff\r\n\r\n", 14))},
                        {"an unknown version", reply("HTTP/7.7 200 OK\r\n\r\n")},
                        {"no number for a status", reply("HTTP/1.1 abc OK\r\n\r\n")}});
    expect_each(true, {{"an older version without an end", reply("HTTP/1.0 200 OK\r\n\r\ngarbage\xff\xfe")},
                       {"200 with a garbage body", reply(ok + "Content-Length: 5\r\n\r\n\xff\xfe{}\"")},
                       {"a 3xx without a target", reply("HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n")}});
}

TEST_F(UploadFaults, WhatNeverEndsIsEndedWithinBounds)
{
    const std::string line = "X-Filling: " + std::string(1000, 'x') + "\r\n", block(60'000, 'x');
    const auto drip = [](Connection& client) { client.drip(std::string(100, 'x'), milliseconds(shortened_ms / 10)); };
    const auto read_nothing = [](Connection&) { wait_until([] { return false; }, milliseconds(2 * shortened_ms)); };
    expect_each(false, {{"silence", hang},
                        {"silence after the request", reply("", hang)},
                        {"silence after the headers", reply(ten_bytes, hang)},
                        {"a large request that nobody reads", read_nothing, large},
                        {"a drip of a body", reply(ok + "Content-Length: 100\r\n\r\n", drip)},
                        {"a drip of a header", reply(ok + "X-Filling: ", drip)},
                        {"endless headers", endless(ok, line)},
                        {"an endless header", endless(ok + "X-Filling: ", block)},
                        {"an endless status line", endless("HTTP/1.1 200 ", block)},
                        {"endless interim answers", endless("", "HTTP/1.1 100 Continue\r\n\r\n")},
                        {"an endless body", endless(ok + "\r\n", block)},
                        {"endless chunks", endless(chunked, "4\r\nxxxx\r\n")},
                        {"an endless trailer", endless(chunked + "0\r\n", line)}});
}

TEST_F(UploadFaults, ARedirectNeverLeavesHttp)
{
    RawServer elsewhere([](Connection& client) { client.send("220 welcome\r\n"); });
    ScratchFolder folder;
    write_file(folder.file("secret"), "text");
    std::vector<std::string> targets{"file://" + folder.file("secret")};
    for (const char* scheme : {"ftp", "ftps", "gopher", "dict", "telnet", "smtp", "imap", "ldap", "mqtt", "scp"})
        targets.push_back(scheme + ("://" + elsewhere.text()) + "/");
    for (const std::string& target : targets) {
        const std::string head = "\r\nLocation: " + target + "\r\nContent-Length: 0\r\n\r\n";
        expect_each(false, {{"302 to " + target, reply("HTTP/1.1 302 Found" + head)},
                            {"307 to " + target, reply("HTTP/1.1 307 Temporary" + head)}});
    }
    EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(UploadFaults, TlsCutInMidHandshakeKeepsTheFile)
{
    TransferSettings::total_timeout_ms = 5000; // the last row is a whole upload
    CertificateAuthority authority;
    HttpsServer server(authority.issue({"127.0.0.1"}));
    for (const size_t bytes :
         {size_t{0}, size_t{1}, size_t{5}, size_t{60}, size_t{500}, size_t{700}, CuttingRelay::unlimited}) {
        const bool whole = bytes == CuttingRelay::unlimited;
        CuttingRelay relay(server.port(), bytes);
        expect_upload("cut after " + std::to_string(bytes) + " bytes",
                      "https://127.0.0.1:" + std::to_string(relay.port()) + "/", whole, authority.file());
        // On a busy machine one of the two ways to send may run out of time before its bytes are through.
        EXPECT_EQ(relay.cuts() > 0, !whole) << bytes;
    }
    EXPECT_GE(server.count(), 2u); // a cut behind the handshake may let a request through whose answer is lost
}

TEST_F(UploadFaults, AServerThatSpeaksNoTlsOrFallsSilentKeepsTheFile)
{
    CertificateAuthority authority;
    const auto says = [](std::string text) { return [text](Connection& client) { client.send(text); }; };
    for (const Upload& upload : std::vector<Upload>{{"garbage", says("garbage\r\n\r\n")},
                                                    {"plain HTTP", says(ok + "Content-Length: 0\r\n\r\n")},
                                                    {"an alert", says({"\x15\3\3\0\2\2\x28", 7})},
                                                    {"silence", hang},
                                                    {"a reset", reset_after(65536)}}) {
        RawServer server(upload.answer);
        expect_upload(upload.name, "https://" + server.text() + "/", false, authority.file());
    }
}
