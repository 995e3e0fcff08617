// Many threads use one client. Made for runs under ThreadSanitizer; it must hold without it, too.
// Labels: threads, network
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

class BusyWebClient : public TransferTest
{
protected:
    BusyWebClient()
    {
        ends.reads_text = false;
        ends.on_end = [this](const char*) { ++ended; };
    }

    // The item's id is its number.
    void queue_one(const std::string& url, Params* params)
    {
        EXPECT_TRUE(queue(url, std::to_string(next++).c_str(), params ? RequestTypePost : RequestTypeGet, params));
    }

    // Makes one of the calls that a host may make at any time.
    void do_something(unsigned what, unsigned number, const std::string& proxy)
    {
        CProxyManager& manager = static_cast<CProxyManager&>(*client.GetProxyManager());
        ICredentialStore& store = *client.GetCredentialStore();
        scoped_ptr<CUserCredentials> login(new CUserCredentials{"user", number % 2 ? "word" : "wrong"});
        scoped_ptr<CProxyInfo> record;
        CUserCredentials copy;
        std::string text;
        long status = 0;
        Params params{{"data", std::string(number % 5000, 'x')}};
        const std::function<void()> deeds[] = {
            [&] { client.CancelDownloadByID(std::to_string(number % (next + 1)).c_str()); },
            [&] { client.CancelDownload(steady.url().c_str()); },
            [&] { number % 8 ? void() : client.CancelAllDownloads(); },
            [&] { store.AddCredentials(proxy.c_str(), std::move(login)); },
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
        // The last one is drawn more often, so that the others find transfers.
        deeds[std::min<std::size_t>(what % (std::size(deeds) + 4), std::size(deeds) - 1)]();
    }

    // All threads at once until the time is over; never too many transfers at a time for the machine.
    void rush(std::chrono::milliseconds duration, const std::string& proxy)
    {
        const auto end = std::chrono::steady_clock::now() + duration;
        const auto goes_on = [=] { return std::chrono::steady_clock::now() < end; };
        // Now and then from a callback, that is, within a call of libcurl.
        ends.on_progress = [=, this, blocks = 0u](const char*) mutable {
            if (++blocks % 32 == 0 && goes_on())
                queue_one(steady.url(), nullptr);
        };
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < host_threads; ++seed)
            threads.emplace_back([&, seed] {
                std::mt19937 random(seed);
                while (goes_on()) {
                    do_something(random(), random(), proxy);
                    support::wait_until([&] { return next - ended < 64 || !goes_on(); });
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    }

    std::map<std::string, int> how_they_ended()
    {
        std::map<std::string, int> ways;
        for (std::size_t id = 0; id < next; ++id) {
            const std::string end = ends.item(std::to_string(id)).end;
            ++ways[end.find('+') != end.npos ? "twice" : end.substr(0, 6)];
        }
        return ways;
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
    std::atomic<std::size_t> next{0}, ended{0};
};

TEST_F(BusyWebClient, EndsEveryTransferExactlyOnce)
{
    support::Squid proxy({"user", "word"});
    client.GetProxyManager()->AddProxyToCache("http://localhost/", proxy.text().c_str());
    rush(std::chrono::seconds(3), proxy.text());
    EXPECT_TRUE(support::wait_until([&] { return ended == next; })) << next << " queued, " << ended << " ended";
    client.Close();
    std::map<std::string, int> ways = how_they_ended();
    EXPECT_EQ(0, ways["twice"]);
    EXPECT_EQ(0, ways[""]);
    for (const char* way : {"comple", "cancel", "login "}) // some had no login or a wrong one
        EXPECT_LT(0, ways[way]) << way;
    EXPECT_LT(0u, by_proxy.requests().size()) << "and some had the right one";
}

TEST_F(BusyWebClient, ClosesUnderFire)
{
    std::size_t heard = 0;
    std::thread closer([&] {
        support::wait_until([&] { return ended > 20; });
        client.Close();
        heard = ended;
    });
    rush(std::chrono::seconds(1), "127.0.0.1:1");
    closer.join();
    EXPECT_EQ(heard, ended) << "nobody hears anything after the close";
    EXPECT_EQ(0, how_they_ended()["twice"]);
}

} // namespace
