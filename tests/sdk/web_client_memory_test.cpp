#include "support/memory.h"
#include "support/raw_server.h"
#include "transfers.h"

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using support::megabytes_added;
using support::RawServer;
using Connection = RawServer::Connection;

constexpr std::size_t megabyte = 1024 * 1024;

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

} // namespace
