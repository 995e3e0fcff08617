#include "CurlHandles.h"
#include "lumo/tova/runtime.h"
#include "support/death.h"
#include "support/ports.h"
#include "support/proxies.h"
#include "transfers.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <openssl/evp.h>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using support::HeldPort;
using support::HttpServer;
using support::HttpsServer;
using support::ProxyOptions;
using support::ProxyProgram;
using support::RawServer;
using support::Squid;
using support::Tinyproxy;
using Connection = RawServer::Connection;

const char* const bad_gateway = "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 3\r\n\r\nbad";
const char* const who = "HTTP/1.1 407 Who\r\nProxy-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n";

std::string at_loopback(int port)
{
    return "127.0.0.1:" + std::to_string(port);
}

class WebClientProxies : public TransferTest
{
protected:
    WebClientProxies() { client.SetCertificateFile(authority.file().c_str()); }

    CProxyManager& manager() { return static_cast<CProxyManager&>(*client.GetProxyManager()); }
    void use(const std::string& proxy) { EXPECT_TRUE(manager().AddProxyToCache("http://127.0.0.1/", proxy.c_str())); }
    void log_in(const std::string& proxy, const std::string& user, const std::string& password)
    {
        scoped_ptr<CUserCredentials> login(new CUserCredentials);
        login->strUserName = user;
        login->strPassword = password;
        EXPECT_TRUE(client.GetCredentialStore()->AddCredentials(proxy.c_str(), login));
    }
    std::string posted(const std::string& url) { return executed(url, RequestTypePost, &event); }
    std::string queued_post(const std::string& url) { return queued(url, RequestTypePost, &event); }

    support::CertificateAuthority authority;
    HttpsServer secure{authority.issue({"127.0.0.1"}), 200};
};

// The two real proxies, how they note a tunnel in their logs, and what they answer when they cannot go on.
struct RealProxy
{
    const char* name;
    std::unique_ptr<ProxyProgram> (*start)(const ProxyOptions&);
    const char* connect; // before host:port
    const char *wrong_login, *server_away;
};

template <class Program>
std::unique_ptr<ProxyProgram> start(const ProxyOptions& options)
{
    return std::make_unique<Program>(options);
}

class RealProxies : public WebClientProxies, public ::testing::WithParamInterface<RealProxy>
{
protected:
    std::unique_ptr<ProxyProgram> start_proxy(ProxyOptions options = {})
    {
        options.connect_ports = {secure.port()};
        auto proxy = GetParam().start(options);
        use(proxy->text());
        return proxy;
    }
};

INSTANTIATE_TEST_SUITE_P(, RealProxies,
                         ::testing::Values(RealProxy{"Squid", start<Squid>, "CONNECT ", "407", "503"},
                                           RealProxy{"Tinyproxy", start<Tinyproxy>, ": CONNECT ", "401", "500"}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(RealProxies, CarryPlainRequestsAndTunnels)
{
    auto proxy = start_proxy();
    EXPECT_EQ("true 200", posted(server.url()));
    EXPECT_EQ("complete", queued_post(server.url()));
    EXPECT_EQ(event, server.requests().at(1).form);
    EXPECT_TRUE(server.requests().at(1).has_header("via")) << "the server sees that a proxy came";
    EXPECT_EQ(2u, proxy->log_count("POST " + server.url(), 2));
    EXPECT_EQ("true 200", posted(secure.url()));
    EXPECT_EQ("complete", queued_post(secure.url()));
    EXPECT_EQ(event, secure.requests().at(1).form);
    EXPECT_LE(1u, proxy->log_count(GetParam().connect + at_loopback(secure.port()))); // squid: when the tunnel ends
    secure.answer(404);
    EXPECT_EQ("false 200", posted(secure.url())) << "the status of a tunnel is the proxy's, which is meant";
    EXPECT_EQ("error 0", queued_post(secure.url())) << "and there is none when the tunnel stood already";
    EXPECT_FALSE(secure.requests().at(0).has_header("via")) << "and nothing of what is in the tunnel";
    HeldPort away;
    EXPECT_EQ(std::string("false ") + GetParam().server_away, posted(away.url()));
    EXPECT_EQ(std::string("error ") + GetParam().server_away, queued_post(away.url()));
    EXPECT_FALSE(manager().IsProxyInBlackList(proxy->text().c_str())) << "which is not the proxy's fault";
}

TEST_P(RealProxies, AskForALoginWithWhichTheNextRequestPasses)
{
    auto proxy = start_proxy({"user", "password"});
    for (HttpServer* origin : {&server, static_cast<HttpServer*>(&secure)}) {
        client.GetCredentialStore()->RemoveCredentials(proxy->text().c_str());
        EXPECT_EQ("false 407", posted(origin->url()));
        EXPECT_EQ("login 407 " + proxy->text(), queued_post(origin->url()));
        log_in(proxy->text(), "user", "wrong");
        EXPECT_EQ(std::string("false ") + GetParam().wrong_login, posted(origin->url()));
        EXPECT_EQ(0u, origin->count()) << "nothing got past the proxy";
        EXPECT_FALSE(manager().IsProxyInBlackList(proxy->text().c_str()));
        log_in(proxy->text(), "user", "password");
        for (std::size_t size : {0, 100'000, 1'000'000}) {
            event["data"] = std::string(size, 'x');
            EXPECT_EQ("true 200", posted(origin->url())) << size;
            EXPECT_EQ(event, origin->requests().back().form) << size;
        }
        EXPECT_EQ("complete", queued(origin->url(), RequestTypePostMultipart, &event));
        EXPECT_EQ(event, origin->requests().back().form);
        EXPECT_FALSE(origin->requests().back().has_header("proxy-authorization"));
    }
}

TEST_F(WebClientProxies, GetTheirLoginWithEveryCharacterAndNoneWhenThereIsNone)
{
    const std::pair<const char*, const char*> logins[] = {
        {"us er", "p@ss:w%rd/"}, {"a%41", "%25+&=%4"}, {"\xc3\xbc", "\xe2\x82\xac#?"}, {"user", ""}};
    for (const auto& [user, password] : logins) {
        // Basic authentication as the proxy sees it, which is what no real proxy's log tells.
        RawServer proxy([](Connection& peer) {
            while (peer.read_request())
                peer.send(peer.request().find("Proxy-Authorization: Basic ") == std::string::npos
                              ? who
                              : "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        });
        use(at_loopback(proxy.port()));
        EXPECT_EQ("false 407", posted(server.url()));
        const std::string without = proxy.requests().at(0);
        EXPECT_EQ(0u, without.find("POST " + server.url()));
        EXPECT_EQ(std::string::npos, without.find("Authorization")) << without;
        EXPECT_EQ(std::string::npos, without.find("Expect")) << without;
        log_in(at_loopback(proxy.port()), user, password);
        EXPECT_EQ("true 200", executed(server.url()));
        const std::string clear = std::string(user) + ":" + password;
        std::string base64(4 * ((clear.size() + 2) / 3), '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()),
                        reinterpret_cast<const unsigned char*>(clear.data()), static_cast<int>(clear.size()));
        EXPECT_NE(std::string::npos, proxy.requests().back().find("Proxy-Authorization: Basic " + base64 + "\r\n"))
            << clear;
    }
}

TEST_F(WebClientProxies, ThatFailAreReportedAndBannedOnlyWhenTheyCannotBeReached)
{
    const auto sends = [](const char* reply) {
        return [reply](Connection& peer) {
            if (peer.read_request())
                peer.send(reply);
        };
    };
    const struct
    {
        const char* name;
        RawServer::Script script;
        const char *executed, *queued; // for a plain request
        const char* tunnelled;         // queued, for https
        bool banned;
    } cases[] = {
        {"resets", [](Connection& peer) { peer.read_some(), peer.reset(); }, "false 0", "error 0", "error 0", false},
        {"hangs", hold_open, "false 0", "error -7", "error -7", true},
        {"asks", sends(who), "false 407", "login 407 ", "login 407 ", false},
        {"is a bad gateway", sends(bad_gateway), "false 502", "error 502", "error 502", false},
        {"babbles", sends("\1\2garbage\r\n\r\n"), "false 0", "error 0", "error 0", false},
        {"breaks off", sends("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbr"), "false 200", "error 200", "error 200",
         false},
    };
    TransferSettings::total_timeout_ms = 300;
    for (const auto& rule : cases) {
        SCOPED_TRACE(rule.name);
        RawServer proxy(rule.script);
        const std::string text = at_loopback(proxy.port());
        const auto expected = [&](std::string end) { return end + (end.back() == ' ' ? text : ""); };
        use(text);
        EXPECT_EQ(rule.executed, posted(server.url()));
        EXPECT_EQ(1, proxy.connections()) << "one chance per request";
        EXPECT_EQ(rule.banned, manager().IsProxyInBlackList(text.c_str()));
        manager().RemoveProxyFromBlackList(text.c_str());
        EXPECT_EQ(expected(rule.queued), queued_post(server.url()));
        EXPECT_EQ(rule.banned, manager().IsProxyInBlackList(text.c_str()));
        EXPECT_EQ(expected(rule.tunnelled), queued_post(secure.url()));
    }
    EXPECT_EQ(0u, server.count() + secure.count()) << "no way around the proxy";
}

TEST_F(WebClientProxies, ThatAreDeadAndCachedDoNotTrapARequest)
{
    HeldPort dead;
    const std::string proxy = at_loopback(dead.port());
    use(proxy);
    EXPECT_EQ("false 0", posted(server.url()));
    EXPECT_TRUE(manager().IsProxyInBlackList(proxy.c_str()));
    EXPECT_EQ("false 0", posted(server.url())) << "the cache answers it all the same";
    EXPECT_EQ("error -7", queued_post(server.url()));
    use("no-such-proxy.invalid:3128");
    EXPECT_EQ("false 0", posted(server.url()));
    EXPECT_EQ("error 0", queued_post(server.url()));
    EXPECT_FALSE(manager().IsProxyInBlackList("no-such-proxy.invalid:3128")) << "a name without a host is not blamed";
    EXPECT_EQ(0u, server.count());
}

/// A chain of proxies to walk, which the system would name on other machines.
class Chain : public CProxyManager
{
public:
    bool GetProxy(const char* url, scoped_ptr<CProxyInfo>& record) override
    {
        if (!record) {
            record.Reset(new CProxyInfo);
            record->vProxies = proxies;
            record->bUseProxy = 1;
        }
        return CProxyManager::GetProxy(url, record);
    }

    std::vector<std::string> proxies;
};

class ProxyChains : public WebClientProxies
{
protected:
    void walk(std::vector<std::string> proxies)
    {
        chain.proxies = std::move(proxies);
        client.SetProxyManager(&chain);
    }
    std::string remembered()
    {
        std::string known;
        chain.FindProxyInCache(server.url().c_str(), known);
        return known;
    }
    void TearDown() override { client.Close(); } // before the chain goes

    Chain chain;
    HeldPort dead, dead_too;
};

TEST_F(ProxyChains, AreWalkedWithinASynchronousRequest)
{
    Squid alive;
    walk({at_loopback(dead.port()), at_loopback(dead_too.port()), alive.text(), "never:1"});
    EXPECT_EQ("true 200", posted(server.url()));
    EXPECT_EQ(1u, alive.log_count("POST " + server.url()));
    EXPECT_TRUE(chain.IsProxyInBlackList(chain.proxies[0].c_str()));
    EXPECT_TRUE(chain.IsProxyInBlackList(chain.proxies[1].c_str()));
    EXPECT_EQ(alive.text(), remembered());
}

TEST_F(ProxyChains, AreWalkedByQueueingOnceMore)
{
    Tinyproxy alive;
    walk({at_loopback(dead.port()), alive.text()});
    EXPECT_EQ("error -7", queued_post(server.url()));
    EXPECT_EQ("complete", queued_post(server.url()));
    EXPECT_EQ(1u, alive.log_count(": POST " + server.url()));
}

TEST_F(ProxyChains, ThatAreAllBannedLeaveTheDirectWay)
{
    walk({at_loopback(dead.port())});
    log_in(at_loopback(dead.port()), "user", "word");
    EXPECT_EQ("true 200", posted(server.url()));
    for (const char* meant_for_the_proxy : {"via", "expect", "proxy-authorization"})
        EXPECT_FALSE(server.requests().at(0).has_header(meant_for_the_proxy)) << meant_for_the_proxy;
    EXPECT_EQ("", remembered()) << "a direct way is no proxy to remember";
}

TEST_F(ProxyChains, RememberForTheHostWhoAskedForALogin)
{
    RawServer asking{std::string(who)};
    walk({at_loopback(asking.port())});
    EXPECT_EQ("login 407 " + chain.proxies[0], queued_post(server.url()));
    EXPECT_EQ(chain.proxies[0], remembered());
}

TEST_F(WebClientProxies, OfTheEnvironmentCountOnlyWithoutAManager)
{
    HeldPort dead;
    setenv("http_proxy", ("http://" + at_loopback(dead.port())).c_str(), 1);
    EXPECT_EQ("true 200", posted(server.url()));
    EXPECT_EQ("complete", queued_post(server.url()));
    WebClient plain;
    plain.Init(false);
    EXPECT_EQ(nullptr, plain.GetProxyManager());
    long status = -1;
    EXPECT_FALSE(plain.ExecRequest(server.url().c_str(), nullptr, status, RequestTypeGet, nullptr));
    unsetenv("http_proxy");
    EXPECT_TRUE(plain.ExecRequest(server.url().c_str(), nullptr, status, RequestTypeGet, nullptr));
    plain.Close();
    setenv("no_proxy", "*", 1);
    use(at_loopback(dead.port()));
    EXPECT_EQ("false 0", posted(server.url())) << "no host is exempt from the manager's choice";
    unsetenv("no_proxy");
}

TEST_F(WebClientProxies, AreBlamedForThreeResultsOnly)
{
    CurlEasyHandle handle;
    const char* url = "http://host/";
    EXPECT_FALSE(client.HandleProxyError(CURLE_COULDNT_CONNECT, &handle, url)) << "no record";
    EXPECT_FALSE(client.HandleProxySuccess(0, &handle, url));
    handle.spProxyInfo.Reset(new CProxyInfo);
    handle.spProxyInfo->SetProxy("p:1");
    EXPECT_FALSE(client.HandleProxyError(CURLE_COULDNT_CONNECT, &handle, url)) << "not in use";
    EXPECT_FALSE(client.HandleProxySuccess(0, &handle, url));
    handle.spProxyInfo->bUseProxy = 1;
    for (long result = 0; result < CURL_LAST; ++result) {
        const bool blamed = result == 6 || result == 7 || result == 28;
        EXPECT_EQ(blamed, client.HandleProxyError(result, &handle, url)) << result;
        EXPECT_EQ(blamed, manager().IsProxyInBlackList("p:1")) << result;
        manager().RemoveProxyFromBlackList("p:1");
    }
    EXPECT_TRUE(client.HandleProxySuccess(0, &handle, url));
    handle.spProxyInfo->SetProxy("q:2");
    EXPECT_TRUE(client.HandleProxySuccess(0, &handle, url));
    std::string known;
    EXPECT_TRUE(manager().FindProxyInCache(url, known));
    EXPECT_EQ("p:1", known) << "the one that is known stays";
    client.SetProxyManager(nullptr);
    EXPECT_FALSE(client.HandleProxyError(CURLE_COULDNT_CONNECT, &handle, url));
    EXPECT_FALSE(client.HandleProxySuccess(0, &handle, url));
}

TEST_F(WebClientProxies, AreSetOnlyWithEverythingInPlace)
{
    CurlEasyHandle handle;
    EXPECT_FALSE(WebClient::SetProxyToNextValidProxy(nullptr, "http://host/", &manager(), nullptr));
    EXPECT_FALSE(WebClient::SetProxyToNextValidProxy(&handle, "http://host/", nullptr, nullptr));
    EXPECT_FALSE(WebClient::SetProxyToNextValidProxy(&handle, "", &manager(), nullptr));
    EXPECT_FALSE(WebClient::SetProxyToNextValidProxy(&handle, nullptr, &manager(), nullptr));
    EXPECT_FALSE(handle.spProxyInfo);
    EXPECT_FALSE(WebClient::SetProxyToNextValidProxy(&handle, "http://host/", &manager(), nullptr));
    EXPECT_TRUE(handle.spProxyInfo);
}

/// Promises a proxy and gives none.
struct Liar : CProxyManager
{
    bool GetProxy(const char*, scoped_ptr<CProxyInfo>&) override { return true; }
};

TEST(WebClientProxiesDeathTest, AbortWhenTheManagerPromisesAProxyAndGivesNone)
{
    Liar manager;
    CurlEasyHandle handle;
    const auto set = [&] { WebClient::SetProxyToNextValidProxy(&handle, "http://host/", &manager, nullptr); };
    EXPECT_ASSERTION(set(), "sdk/src/WebClientCurl", "pHandle->spProxyInfo.Get()");
    handle.spProxyInfo.Reset(new CProxyInfo);
    EXPECT_ASSERTION(set(), "sdk/src/WebClientCurl", "0 < strlen(pszProxy)");
}

std::atomic<int> lines_with_secret{0};

TEST_F(WebClientProxies, AreTalkedToWithoutAPasswordInAnyOutput)
{
    const std::string secret = "hunter2-never-shown";
    tova_log_register([](int32_t, const char* message) { lines_with_secret += strstr(message, "hunter2") != nullptr; });
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    Squid proxy({"user", secret});
    HeldPort dead;
    std::string said;
    for (const std::string& text : {proxy.text(), at_loopback(dead.port()), std::string("odd://127.0.0.1:1")}) {
        use(text);
        for (const char* password : {secret.c_str(), "hunter2-wrong", "hunter2%"}) {
            log_in(text, "user", password);
            for (const std::string& url : {server.url(), secure.url(), std::string("http://127.0.0.1:1/")}) {
                posted(url);
                said += client.GetLastError() + "\n";
                queued_post(url);
            }
        }
    }
    client.Close();
    const std::string output =
        said + ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr() + proxy.log();
    tova_log_register(nullptr);
    EXPECT_NE(std::string::npos, output.find("POST")) << "the proxy's log is part of it";
    EXPECT_EQ(std::string::npos, output.find("hunter2")) << output;
    EXPECT_EQ(0, lines_with_secret);
    EXPECT_LT(0u, server.count());
}

} // namespace
