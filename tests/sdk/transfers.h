// What the web client's tests share: a callback that keeps what it hears, an online machine, settings put back.
#pragma once

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/WebClient.h"
#include "TransferOptions.h"
#include "TransferSettings.h"
#include "host/host.h"
#include "support/http_server.h"
#include "support/raw_server.h"
#include "support/wait.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace transfers {

using AnalyticsSDK::RequestType;
using AnalyticsSDK::RequestTypeGet;
using AnalyticsSDK::RequestTypePost;
using AnalyticsSDK::RequestTypePostMultipart;
using Params = std::map<std::string, std::string>;

/// While it lives the machine counts as online, or as `set` last said, whatever the running one is. Its end puts the
/// limits of transfers back.
class Network
{
public:
    Network()
    {
        m_facts = AnalyticsSDK::host::system_facts();
        m_facts.reachability = [](std::uint32_t& flags) {
            flags = online ? AnalyticsSDK::host::flag_reachable : 0;
            return AnalyticsSDK::host::answer::found;
        };
        set(true);
        AnalyticsSDK::host::replace_facts(&m_facts);
    }
    ~Network()
    {
        AnalyticsSDK::host::replace_facts(nullptr);
        AnalyticsSDK::TransferSettings::connect_timeout_ms = 30'000;
        AnalyticsSDK::TransferSettings::total_timeout_ms = 60'000;
        AnalyticsSDK::TransferSettings::clock = nullptr;
    }
    void set(bool is_online) { online = is_online; }

private:
    static inline std::atomic<bool> online{true};
    AnalyticsSDK::host::source m_facts;
};

/// A server's script: takes a request and never answers.
inline void hold_open(support::RawServer::Connection& peer)
{
    peer.read_request();
    peer.hang();
}

struct Progress
{
    double downloaded, total, speed;
};

/// Keeps, per item, how its transfer ended: "complete", "cancel", "error 404", "login 407 127.0.0.1:3128".
class Ends : public AnalyticsSDK::IProgressCallback
{
public:
    struct Item
    {
        std::string end, body;
        std::vector<Progress> progress;
    };

    void OnDownloadComplete(const char* id) override
    {
        if (client && reads_text)
            change(id, [text = client->GetStream(id)->str()](Item& item) { item.body = text; });
        end(id, "complete");
    }
    void OnDownloadCancel(const char* id) override { end(id, "cancel"); }
    void OnDownloadError(const char* id, long code) override { end(id, "error " + std::to_string(code)); }
    void OnProxyAuthenticationError(const char* id, long code, const char* proxy) override
    {
        end(id, "login " + std::to_string(code) + " " + proxy);
    }
    void OnProgressUpdate(const char* id, double downloaded, double total, double speed) override
    {
        change(id, [&](Item& item) { item.progress.push_back({downloaded, total, speed}); });
        if (on_progress)
            on_progress(id);
    }

    Item item(const std::string& id)
    {
        std::lock_guard hold(m_lock);
        return m_items[id];
    }
    /// Waits for the end of an item. "pending" when it does not come; several ends are joined with "+".
    std::string of(const std::string& id, support::milliseconds limit = support::patience)
    {
        return support::wait_until([&] { return !item(id).end.empty(); }, limit) ? item(id).end : "pending";
    }

    std::function<void(const char*id)> on_progress, on_end; ///< on the client's thread; set before queueing
    AnalyticsSDK::IWebClient* client = nullptr;
    bool reads_text = true;

private:
    template <class Change>
    void change(const char* id, Change how)
    {
        std::lock_guard hold(m_lock);
        how(m_items[id]);
    }
    void end(const char* id, const std::string& how)
    {
        if (on_end)
            on_end(id);
        change(id, [&](Item& item) { item.end += item.end.empty() ? how : "+" + how; });
    }

    std::mutex m_lock;
    std::map<std::string, Item> m_items;
};

/// A running web client whose callback outlives it.
class TransferTest : public ::testing::Test
{
protected:
    TransferTest()
    {
        ends.client = &client;
        EXPECT_TRUE(client.Init(true));
    }
    ~TransferTest() override { client.Close(); }

    bool queue(const std::string& url, const char* id = "item", RequestType type = RequestTypeGet,
               Params* params = nullptr)
    {
        return client.QueueRequest(url.c_str(), &ends, type, params, id);
    }
    std::string queued(const std::string& url, RequestType type = RequestTypeGet, Params* params = nullptr)
    {
        const std::string id = "item " + std::to_string(++m_items);
        return queue(url, id.c_str(), type, params) ? ends.of(id) : "refused";
    }
    /// "true 200": what the call answered and the status it gave.
    std::string executed(const std::string& url, RequestType type = RequestTypeGet, Params* params = nullptr,
                         std::ostream* out = nullptr)
    {
        long status = -1;
        const bool ok = client.ExecRequest(url.c_str(), out, status, type, params);
        return (ok ? "true " : "false ") + std::to_string(status);
    }

    Network network;
    /// Gives back what was posted. Outlives the client, whose idle connections would hold up its end.
    support::HttpServer server{[](const support::Request& request) { return support::Reply{200, request.body}; }};
    Ends ends;
    AnalyticsSDK::WebClient client;
    Params event{{"data", "[1,\"x y\"]\n"}, {"g", "id"}};

private:
    int m_items = 0;
};

} // namespace transfers
