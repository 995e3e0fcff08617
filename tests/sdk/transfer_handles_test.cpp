// Labels: network
#include "CurlHandles.h"

#include "transfers.h"

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
    EXPECT_TRUE(two->IsCancelDownload());
    EXPECT_FALSE(multi.FindEasyHandle("http://b/")->IsCancelDownload());
    multi.RemoveEasyHandle(one);
    EXPECT_EQ(two, multi.FindEasyHandle("http://a/"));
    multi.RemoveEasyHandle(new CurlEasyHandle); // not listed: destroyed all the same
    EXPECT_EQ(2, multi.GetDownloadQueueSize());
}

TEST_F(TransferList, RestartsATransferWithNewOptions)
{
    support::HttpServer first(200), second(200);
    CurlEasyHandle* handle = add(first.url().c_str(), "1");
    std::vector<CurlEasyHandle*> refused;
    ASSERT_TRUE(ApplyTransferOptions(handle, transfers::RequestTypeGet, nullptr, true, ""));
    handle->OpenStringStream();
    multi.AdoptQueued(refused);
    EXPECT_TRUE(refused.empty());
    curl_easy_setopt(handle->GetHandle(), CURLOPT_URL, second.url().c_str());
    multi.RetryEasyHandle(handle);
    EXPECT_TRUE(support::wait_until([&] {
        int running = 0;
        curl_multi_perform(multi.GetHandle(), &running);
        return running == 0;
    }));
    EXPECT_EQ(0u, first.count());
    EXPECT_EQ(1u, second.count());
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
