#include "support/child.h"
#include "support/memory.h"
#include "support/raw_server.h"
#include "transfers.h"

#include <cstdlib>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using support::megabytes_added;
using support::RawServer;
using Connection = RawServer::Connection;

constexpr std::size_t megabyte = 1024 * 1024;

class WebClientStalls : public TransferTest
{
protected:
    void hold(const char* id)
    {
        const int before = silent.connections();
        ASSERT_TRUE(queue(silent.url(), id));
        ASSERT_TRUE(silent.wait_for_connections(before + 1));
    }

    RawServer silent{hold_open};
};

TEST_F(WebClientStalls, GiveUpEveryTransferWhenTheNetworkGoes)
{
    hold("one");
    hold("two");
    network.set(false);
    EXPECT_EQ("error -3", ends.of("one"));
    EXPECT_EQ("error -3", ends.of("two"));
    ASSERT_TRUE(queue(silent.url(), "three"));
    EXPECT_EQ("error -3", ends.of("three"));
    EXPECT_EQ("true 200", executed(server.url())) << "a synchronous request does not ask";
}

TEST_F(WebClientStalls, GiveUpATransferAfterTooLongASilence)
{
    static std::atomic<double> now;
    now = 1000.0;
    TransferSettings::clock = [] { return now.load(); };
    hold("silent");
    EXPECT_EQ("complete", queued(server.url())) << "a turn that began after the first check of the silent one";
    now = 61'000.0;
    EXPECT_EQ("complete", queued(server.url()));
    EXPECT_EQ("pending", ends.of("silent", support::milliseconds(0))) << "exactly a minute";
    now = 61'001.0;
    EXPECT_EQ("error -3", ends.of("silent"));
}

class WebClientMemory : public TransferTest
{
protected:
    void SetUp() override
    {
#ifdef ANALYTICS_SANITIZED
        GTEST_SKIP() << "a sanitizer's own memory hides ours";
#endif
        executed(swallowing.url("/0"), RequestTypePost, &event);
    }

    // Takes any request and answers with as many megabytes as the target says.
    RawServer swallowing{[](Connection& peer) {
        std::string head;
        while (head.find("\r\n\r\n") == head.npos)
            head += peer.read_some();
        std::size_t left = 0;
        if (const auto at = head.find("Content-Length: "); at != head.npos)
            left = std::stoul(head.substr(at + 16)) - (head.size() - head.find("\r\n\r\n") - 4);
        while (left > 0)
            left -= peer.read_some(std::min<std::size_t>(left, 65536)).size();
        const std::size_t megabytes = std::stoul(head.substr(head.find('/') + 1));
        peer.send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(megabytes * megabyte) +
                  "\r\n\r\n");
        const std::string block(megabyte, 'x');
        for (std::size_t sent = 0; sent < megabytes && peer.send(block); ++sent) {
        }
    }};
};

TEST_F(WebClientMemory, IsNotSpentOnABodyThatNobodyWants)
{
    std::ostream nowhere(nullptr);
    for (std::ostream* out : {&nowhere, static_cast<std::ostream*>(nullptr)}) {
        EXPECT_LT(megabytes_added(
                      [&] { EXPECT_EQ("true 200", executed(swallowing.url("/100"), RequestTypePost, &event, out)); }),
                  8);
    }
}

TEST_F(WebClientMemory, OfAnUploadIsItsTextAndItsEncodedText)
{
    constexpr double plain = 32, encoded = 40; // megabytes: one byte in eight becomes three
    std::string text;
    for (std::size_t at = 0; at < plain * megabyte / 8; ++at)
        text += "1234567,";
    Params params;
    params["data"] = std::move(text);
    const double added =
        megabytes_added([&] { EXPECT_EQ("true 200", executed(swallowing.url("/0"), RequestTypePost, &params)); });
    EXPECT_LT(added, (plain + encoded) * 1.05 - plain) << "the plain text was there before";
    EXPECT_GT(added, encoded * 0.9) << "or nothing was measured";
}

// Ends this process the way a careless host does: with transfers of every kind under way, and not a word to the client.
[[noreturn]] void leave_in_the_middle(const std::string& silent, const std::string& busy,
                                      const std::string& authorities)
{
    static Network network;
    IWebClient* client = CreateWebClient();
    client->SetCertificateFile(authorities.c_str());
    client->Init(true);
    Params params{{"data", std::string(megabyte, 'x')}};
    for (int at = 0; at < 20; ++at) {
        client->QueueRequest(silent.c_str(), nullptr, RequestTypePost, &params, "held");
        client->QueueRequest(busy.c_str(), nullptr, RequestTypePost, &params, "busy");
    }
    for (const std::string& url : {silent, busy}) {
        std::thread([=] {
            long status = 0;
            Params form{{"data", std::string(megabyte, 'x')}};
            while (client->ExecRequest(url.c_str(), nullptr, status, RequestTypePost, &form)) {
            }
        }).detach();
    }
    long status = 0;
    client->ExecRequest(busy.c_str(), nullptr, status, RequestTypePost, &params);
    std::exit(status == 200 ? 7 : 1);
}

TEST(ThreadsWebClientExit, NeitherCrashesNorHangsWithTransfersUnderWay)
{
    if (const char* silent = std::getenv("LEAVE_SILENT"))
        leave_in_the_middle(silent, std::getenv("LEAVE_BUSY"), std::getenv("LEAVE_CA"));
    support::CertificateAuthority authority;
    RawServer silent(hold_open);
    support::HttpsServer busy(authority.issue({"127.0.0.1"}));
    for (int turn = 0; turn < 5; ++turn) {
        const support::Ended ended = support::run({"/proc/self/exe", "--gtest_filter=ThreadsWebClientExit.*"},
                                                  // What a host leaves in the middle is no leak.
                                                  {{"LEAVE_SILENT=" + silent.url(), "LEAVE_BUSY=" + busy.url(),
                                                    "LEAVE_CA=" + authority.file(), "ASAN_OPTIONS=detect_leaks=0"},
                                                   "",
                                                   ""});
        EXPECT_EQ(7, ended.status) << ended.output << ended.errors;
        EXPECT_EQ("", ended.errors);
    }
    EXPECT_LT(0, silent.connections());
}

} // namespace
