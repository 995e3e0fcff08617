#include "CurlHandles.h"

#include "support/scratch.h"
#include "transfers.h"

#include <cctype>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace AnalyticsSDK;

TEST(EscapeParams, EncodesWhatIsUnsafeInLowerCase)
{
    std::string all, expected;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    for (unsigned char byte : all) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%%%02x", byte);
        const bool stays = std::isalnum(byte) || (byte < 128 && byte != 0 && std::strchr("-.!*'()", byte));
        expected += stays ? std::string(1, static_cast<char>(byte)) : hex;
    }
    const struct
    {
        std::string value, escaped;
    } cases[] = {
        {"", ""}, {"a b_c/d~", "a%20b%5fc%2fd%7e"}, {"Zz09-.", "Zz09-."}, {"{|}", "%7b%7c%7d"}, {all, expected},
    };
    for (const auto& rule : cases)
        EXPECT_EQ(rule.escaped, EscapeParams(nullptr, rule.value));
}

std::vector<std::string> lines(const curl_slist* list)
{
    std::vector<std::string> all;
    for (; list; list = list->next)
        all.emplace_back(list->data);
    return all;
}

TEST(HttpHeaders, HoldLinesInOrderAndSkipEmptyOnes)
{
    CurlHttpHeaders headers;
    EXPECT_EQ(nullptr, headers.pList);
    headers.SetHeader("X", "");
    headers.SetHeader("", "1");
    EXPECT_EQ(nullptr, headers.pList);
    headers.SetHeader("X", "1");
    headers.AddHeader("as it is");
    EXPECT_EQ((std::vector<std::string>{"X: 1", "as it is"}), lines(headers.pList));
}

TEST(TransferHandle, ReplacesItsStreamAndKeepsATextReadable)
{
    support::ScratchFolder folder;
    support::write_file(folder.file("body"), "longer than what comes");
    CurlEasyHandle handle;
    EXPECT_EQ(std::string(256, '\0'), std::string(handle.GetErrorBuffer(), 256));
    handle.CloseStream();
    *handle.OpenFileStream(folder.file("body").c_str()) << "new";
    EXPECT_EQ(folder.file("body"), handle.GetFilePath());
    handle.CloseStream();
    EXPECT_EQ("new", support::read_file(folder.file("body")));
    *handle.OpenStringStream() << "text";
    handle.CloseStream();
    EXPECT_EQ("text", dynamic_cast<std::ostringstream*>(handle.GetStream())->str());
}

CurlEasyHandle* add(CurlMultiHandle& multi, const char* url, const char* id)
{
    auto* handle = new CurlEasyHandle;
    handle->SetUrl(url);
    handle->SetItemID(id);
    multi.AddEasyHandle(handle);
    return handle;
}

TEST(TransferList, FindsTheFirstMatchAndOnlyExactOnes)
{
    CurlMultiHandle multi;
    CurlEasyHandle* one = add(multi, "http://a/", "1");
    CurlEasyHandle* two = add(multi, "http://a/", "2");
    add(multi, "http://b/", "2");
    EXPECT_EQ(3, multi.GetDownloadQueueSize());
    EXPECT_EQ(one, multi.FindEasyHandle("http://a/"));
    EXPECT_EQ(two, multi.FindEasyHandleByID("2"));
    EXPECT_EQ(two, multi.FindEasyHandle(two->GetHandle()));
    EXPECT_EQ(nullptr, multi.FindEasyHandle("http://A/"));
    EXPECT_EQ(nullptr, multi.FindEasyHandleByID("3"));
    EXPECT_EQ(nullptr, multi.FindEasyHandle(static_cast<void*>(&multi)));
    multi.CancelDownload("http://nowhere/");
    multi.CancelDownloadByID("3");
    EXPECT_FALSE(one->IsCancelDownload() || two->IsCancelDownload());
    multi.CancelDownloadByID("2");
    EXPECT_TRUE(two->IsCancelDownload());
    multi.CancelDownload("http://a/");
    EXPECT_TRUE(one->IsCancelDownload());
    multi.RemoveEasyHandle(one);
    EXPECT_EQ(two, multi.FindEasyHandle("http://a/"));
    multi.CancelAllDownloads();
    EXPECT_TRUE(multi.FindEasyHandle("http://b/")->IsCancelDownload());
    multi.RemoveEasyHandle(new CurlEasyHandle); // not listed: destroyed all the same
    EXPECT_EQ(2, multi.GetDownloadQueueSize());
}

TEST(TransferList, RestartsATransferWithNewOptions)
{
    support::HttpServer first(200), second(200);
    CurlMultiHandle multi;
    CurlEasyHandle* handle = add(multi, first.url().c_str(), "1");
    std::vector<CurlEasyHandle*> refused;
    ASSERT_TRUE(ApplyTransferOptions(handle, RequestTypeGet, nullptr, true, ""));
    handle->OpenStringStream();
    multi.AdoptQueued(refused);
    EXPECT_TRUE(refused.empty());
    EXPECT_EQ(CURLM_ADDED_ALREADY, curl_multi_add_handle(multi.GetHandle(), handle->GetHandle()));
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

class Stalls : public ::testing::Test
{
protected:
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
    transfers::Settings settings;
    CurlMultiHandle multi;
};

TEST_F(Stalls, BeginAfterMoreThanAMinuteOfSilenceSinceTheFirstCheck)
{
    CurlEasyHandle* one = add(multi, "http://a/", "1");
    EXPECT_EQ(0u, stalled_at(1000)) << "the first check starts the clock";
    EXPECT_EQ(1000, one->GetLastUpdate());
    CurlEasyHandle* two = add(multi, "http://b/", "2");
    EXPECT_EQ(0u, stalled_at(61'000)) << "exactly a minute";
    EXPECT_EQ(1u, stalled_at(61'001));
    one->SetLastUpdate(61'001);
    EXPECT_EQ(0u, stalled_at(121'000));
    two->SetTimeout(10);
    EXPECT_EQ(1u, stalled_at(121'001));
    EXPECT_EQ(2u, stalled_at(121'002));
    EXPECT_EQ(2, multi.GetDownloadQueueSize()) << "finding removes nothing";
}

TEST_F(Stalls, TakeEverythingWhileTheMachineIsOffline)
{
    add(multi, "http://a/", "1");
    network.set(false);
    add(multi, "http://b/", "2");
    EXPECT_EQ(2u, stalled_at(5)) << "even at the first check";
    network.set(true);
    EXPECT_EQ(0u, stalled_at(5));
}

} // namespace
