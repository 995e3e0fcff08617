// Many threads at one client: meant for a run under ThreadSanitizer, and true without it.
#include "support/proxies.h"
#include "transfers.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using support::RawServer;
using Connection = RawServer::Connection;

constexpr int host_threads = 8;

/// Counts how often each transfer ended; the item id is its number.
class Tally : public IProgressCallback
{
public:
    static constexpr std::size_t most = 200'000;

    void OnDownloadComplete(const char* id) override { end(id, completed); }
    void OnDownloadCancel(const char* id) override { end(id, cancelled); }
    void OnDownloadError(const char* id, long) override { end(id, failed); }
    void OnProxyAuthenticationError(const char* id, long, const char*) override { end(id, failed); }
    void OnProgressUpdate(const char*, double, double, double) override
    {
        // Now and then from within libcurl's own call.
        if (++m_blocks % 32 == 0 && queue_more)
            queue_more();
    }

    std::string next_id() { return std::to_string(next++); }
    std::size_t ended() const { return completed + cancelled + failed; }

    std::function<void()> queue_more;
    std::atomic<std::size_t> next{0}, refused{0}, completed{0}, cancelled{0}, failed{0}, twice{0};

private:
    void end(const char* id, std::atomic<std::size_t>& how)
    {
        twice += m_ends[std::strtoul(id, nullptr, 10) % most]++ != 0;
        ++how;
    }

    std::vector<std::atomic<int>> m_ends = std::vector<std::atomic<int>>(most);
    std::atomic<unsigned> m_blocks{0};
};

class ThreadsWebClient : public TransferTest
{
protected:
    void queue_one(const std::string& url, Params* params)
    {
        const std::string id = tally.next_id();
        if (!client.QueueRequest(url.c_str(), &tally, params ? RequestTypePost : RequestTypeGet, params, id.c_str()))
            ++tally.refused;
    }

    // One of everything that a host may do at any time.
    void do_something(unsigned what, unsigned number, const std::string& proxy)
    {
        CProxyManager& manager = static_cast<CProxyManager&>(*client.GetProxyManager());
        ICredentialStore& store = *client.GetCredentialStore();
        scoped_ptr<CUserCredentials> login(new CUserCredentials);
        login->strUserName = "user";
        login->strPassword = number % 2 ? "word" : "wrong";
        scoped_ptr<CProxyInfo> record;
        CUserCredentials copy;
        std::string text;
        long status = 0;
        Params params{{"data", std::string(number % 5000, 'x')}};
        const std::function<void()> deeds[] = {
            [&] { client.CancelDownloadByID(std::to_string(number % (tally.next + 1)).c_str()); },
            [&] { client.CancelDownload(steady.url().c_str()); },
            [&] { number % 8 ? void() : client.CancelAllDownloads(); },
            [&] { store.AddCredentials(proxy.c_str(), login); },
            [&] { store.RemoveCredentials(proxy.c_str()); },
            [&] { store.CopyUserCredentials(proxy.c_str(), copy); },
            [&] { manager.AddProxyToBlackList(number % 2 ? proxy.c_str() : "other:1", 5); },
            [&] { manager.GetProxy(by_proxy.url().c_str(), record); },
            [&] { manager.IsProxyInBlackList(proxy.c_str()); },
            [&] { manager.FindProxyInCache(by_proxy.url().c_str(), text); },
            [&] { client.ExecRequest(steady.url().c_str(), nullptr, status, RequestTypePost, &params); },
            [&] { client.SetCertificateFile(number % 2 ? "a" : "b"); },
            [&] { queue_one(by_proxy.url("/", "localhost"), number % 8 ? nullptr : &params); },
            [&] { queue_one(steady.url(), number % 2 ? &params : nullptr); },
        };
        // The last one is drawn more often, so that there is something to do the others to.
        deeds[std::min<std::size_t>(what % (std::size(deeds) + 4), std::size(deeds) - 1)]();
    }

    // All threads at once until the time is over; never too many transfers at a time for the machine.
    void rush(std::chrono::milliseconds duration, const std::string& proxy)
    {
        const auto end = std::chrono::steady_clock::now() + duration;
        const auto goes_on = [=] { return std::chrono::steady_clock::now() < end; };
        tally.queue_more = [&, goes_on] { goes_on() ? queue_one(steady.url(), nullptr) : void(); };
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < host_threads; ++seed)
            threads.emplace_back([&, seed] {
                std::mt19937 random(seed);
                while (goes_on() && tally.next < Tally::most) {
                    do_something(random(), random(), proxy);
                    support::wait_until([&] { return tally.next - tally.refused - tally.ended() < 64 || !goes_on(); });
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    }

    // Both answer in small pieces, so that there is something to cancel; the second is reached by "localhost", which
    // alone has a proxy.
    static void answer(Connection& peer)
    {
        while (peer.read_request()) {
            peer.send("HTTP/1.1 200 OK\r\nContent-Length: 20000\r\n\r\n");
            for (int piece = 0; piece < 10; ++piece)
                if (!peer.send(std::string(2000, 'x')))
                    return;
        }
    }
    RawServer steady{answer}, by_proxy{answer};
    Tally tally;
};

TEST_F(ThreadsWebClient, EndsEveryTransferExactlyOnce)
{
    support::Squid proxy({"user", "word"});
    client.GetProxyManager()->AddProxyToCache("http://localhost/", proxy.text().c_str());
    rush(std::chrono::seconds(3), proxy.text());
    EXPECT_TRUE(support::wait_until([&] { return tally.ended() + tally.refused == tally.next; }))
        << tally.next << " queued, " << tally.ended() << " ended";
    EXPECT_EQ(0u, tally.refused);
    EXPECT_EQ(0u, tally.twice);
    EXPECT_LT(0u, tally.completed);
    EXPECT_LT(0u, tally.cancelled);
    EXPECT_LT(0u, tally.failed) << "some had no login or a wrong one";
    EXPECT_LT(0u, by_proxy.requests().size()) << "and some had the right one";
    RecordProperty("transfers", static_cast<int>(tally.next));
    client.Close();
}

TEST_F(ThreadsWebClient, ClosesUnderFire)
{
    std::thread closer([&] {
        support::wait_until([&] { return tally.ended() > 20; });
        client.Close();
    });
    rush(std::chrono::seconds(1), "127.0.0.1:1");
    closer.join();
    const std::size_t ended = tally.ended();
    EXPECT_LE(ended, tally.next);
    EXPECT_EQ(0u, tally.twice);
    EXPECT_EQ(ended, tally.ended()) << "nobody hears anything after the close";
}

} // namespace
