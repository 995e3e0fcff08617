// Labels: network
#include "CurlHandles.h"

#include "transfers.h"

#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace AnalyticsSDK;

TEST(HttpHeaders, SkipALineWithoutANameOrAValue)
{
    CurlHttpHeaders headers;
    headers.SetHeader("X", "");
    headers.SetHeader("", "1");
    headers.SetHeader(nullptr, "1");
    headers.SetHeader("X", nullptr);
    headers.AddHeader(nullptr);
    EXPECT_EQ(nullptr, headers.pList);
    headers.SetHeader("X", EscapeParams(nullptr, " _a").c_str());
    EXPECT_STREQ("X: %20%5fa", headers.pList->data);
}

TEST(HttpHeaders, OfARequestComeBehindThoseOfWhoeverMadeTheTransfer)
{
    CurlEasyHandle handle;
    *handle.GetHttpHeaders() = curl_slist_append(nullptr, "X: 1");
    EXPECT_TRUE(ApplyTransferOptions(&handle, RequestTypeGet, nullptr, false, ""));
    std::string first_letters;
    for (const curl_slist* line = *handle.GetHttpHeaders(); line; line = line->next)
        first_letters += line->data[0];
    EXPECT_EQ("XACCE", first_letters);
}

class TransferList : public ::testing::Test
{
protected:
    CurlEasyHandle* add(const char* url, const char* id)
    {
        auto* handle = new CurlEasyHandle;
        handle->SetUrl(url);
        handle->SetItemID(id);
        multi.AddEasyHandle(handle);
        return handle;
    }
    std::size_t stalled_at(double time_ms)
    {
        static double now;
        now = time_ms;
        TransferSettings::clock = [] { return now; };
        std::vector<CurlEasyHandle*> out;
        multi.GetTimedOutTransfers(out);
        return out.size();
    }

    /// A GET that libcurl has, with its sockets watched.
    CurlEasyHandle* begin(const support::HttpServer& server)
    {
        CurlEasyHandle* handle = add(server.url().c_str(), "1");
        EXPECT_TRUE(ApplyTransferOptions(handle, transfers::RequestTypeGet, nullptr, true, ""));
        handle->OpenStringStream();
        multi.sockets.Watch(*handle);
        std::vector<CurlEasyHandle*> refused;
        multi.AdoptQueued(refused);
        EXPECT_TRUE(refused.empty());
        return handle;
    }
    bool run_all()
    {
        return support::wait_until([&] {
            int running = 0;
            curl_multi_perform(multi.GetHandle(), &running);
            return running == 0;
        });
    }

    transfers::Network network;
    CurlMultiHandle multi;
};

TEST_F(TransferList, FindsTheFirstOfTheExactMatches)
{
    CurlEasyHandle* one = add("http://a/", "1");
    CurlEasyHandle* two = add("http://a/", "2");
    add("http://b/", "2");
    EXPECT_EQ(one, multi.FindEasyHandle("http://a/"));
    EXPECT_EQ(nullptr, multi.FindEasyHandle("http://A/"));
    EXPECT_EQ(nullptr, multi.FindEasyHandle(static_cast<void*>(&multi)));
    multi.CancelDownloadByID("2");
    EXPECT_EQ(std::vector{two}, multi.GetCancelled());
    EXPECT_FALSE(multi.FindEasyHandle("http://b/")->IsCancelDownload());
    multi.RemoveEasyHandle(one);
    EXPECT_EQ(two, multi.FindEasyHandle("http://a/"));
    multi.RemoveEasyHandle(new CurlEasyHandle); // not listed: destroyed all the same
    EXPECT_EQ(2, multi.GetDownloadQueueSize());
}

TEST_F(TransferList, RestartsATransferWithNewOptions)
{
    support::HttpServer first(200), second(200);
    CurlEasyHandle* handle = begin(first);
    curl_easy_setopt(handle->GetHandle(), CURLOPT_URL, second.url().c_str());
    multi.RetryEasyHandle(handle);
    EXPECT_TRUE(run_all());
    EXPECT_EQ(0u, first.count());
    EXPECT_EQ(1u, second.count());
}

TEST_F(TransferList, ShutsTheSocketsOfItsTransfersAndNoOtherFile)
{
    support::HttpServer server(200);
    CurlEasyHandle* handle = begin(server);
    EXPECT_TRUE(run_all());
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(handle->GetHandle(), CURLINFO_ACTIVESOCKET, &socket); // kept for the next request
    const int own = ::dup(socket);
    int pair[2];
    ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, pair));
    ::dup2(pair[0], socket); // as if it were closed, and its number given to another file
    multi.sockets.Shut();
    EXPECT_EQ(1, ::send(pair[0], "x", 1, MSG_NOSIGNAL));
    ::dup2(own, socket);
    multi.sockets.Shut();
    EXPECT_EQ(-1, ::send(own, "x", 1, MSG_NOSIGNAL));
    for (const int file : {own, pair[0], pair[1]})
        ::close(file);
}

TEST_F(TransferList, RunsACallOnce)
{
    int count = 0;
    multi.Call([&] { ++count; });
    for (int turn = 0; turn < 2; ++turn)
        multi.RunCalls();
    EXPECT_EQ(1, count);
}

TEST_F(TransferList, LeavesAnEndedTransferItsResultWhenItsTimeIsOver)
{
    support::HttpServer server([](const support::Request&) { return support::Reply{200, "taken"}; });
    CurlEasyHandle alone;
    alone.SetUrl(server.url().c_str());
    EXPECT_TRUE(ApplyTransferOptions(&alone, transfers::RequestTypeGet, nullptr, true, ""));
    std::ostream* body = alone.OpenStringStream();
    const std::function<bool()> is_over = [&] { return body->tellp() > 0; };
    alone.pIsOver = &is_over;
    EXPECT_EQ(CURLE_OK, alone.Perform());
}

TEST_F(TransferList, CallsATransferStalledAfterAMinuteOfSilence)
{
    CurlEasyHandle* one = add("http://a/", "1");
    EXPECT_EQ(0u, stalled_at(1000)) << "the first check starts the clock";
    EXPECT_EQ(0u, stalled_at(61'000)) << "exactly a minute";
    EXPECT_EQ(1u, stalled_at(61'001));
    one->SetLastUpdate(61'001);
    EXPECT_EQ(0u, stalled_at(121'001));
    one->SetTimeout(10);
    EXPECT_EQ(1u, stalled_at(121'001));
    EXPECT_EQ(1, multi.GetDownloadQueueSize()) << "finding removes nothing";
}

TEST_F(TransferList, CallsEverythingStalledWhileTheMachineIsOffline)
{
    add("http://a/", "1");
    network.set(false);
    EXPECT_EQ(1u, stalled_at(5)) << "even at the first check";
    network.set(true);
    EXPECT_EQ(0u, stalled_at(5));
}

} // namespace
