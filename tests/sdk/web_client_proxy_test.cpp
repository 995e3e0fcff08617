// Labels: network
#include "CurlHandles.h"
#include "lumo/tova/runtime.h"
#include "support/death.h"
#include "support/ports.h"
#include "support/proxies.h"
#include "transfers.h"

#include <cstdlib>
#include <cstring>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using namespace support;
using namespace testing;
using Connection = RawServer::Connection;

const char* const who = "HTTP/1.1 407 Who\r\nProxy-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n";

class WebClientProxies : public TransferTest
{
protected:
    WebClientProxies() { client.SetCertificateFile(authority.file().c_str()); }

    CProxyManager& manager() { return static_cast<CProxyManager&>(*client.GetProxyManager()); }
    void use(const std::string& proxy) { EXPECT_TRUE(manager().AddProxyToCache("http://127.0.0.1/", proxy.c_str())); }
    void log_in(const std::string& proxy, const std::string& user, const std::string& password)
    {
        scoped_ptr<CUserCredentials> login(new CUserCredentials{user, password});
        EXPECT_TRUE(client.GetCredentialStore()->AddCredentials(proxy.c_str(), std::move(login)));
    }
    std::string posted(const std::string& url) { return executed(url, RequestTypePost, &event); }
    std::string queued_post(const std::string& url) { return queued(url, RequestTypePost, &event); }

    support::CertificateAuthority authority;
    HttpsServer secure{authority.issue({"127.0.0.1"}), 200};
};

/// tinyproxy: the awkward one. Its log has a line per request: "Request (file descriptor 5): POST http://host/
/// HTTP/1.1".
class Tinyproxy : public ProxyProgram
{
public:
    Tinyproxy(const ProxyOptions& options, int connect_port)
    {
        start([&](int port) {
            std::string conf = "Port " + std::to_string(port) + "\nListen 127.0.0.1\nAllow 127.0.0.1\nTimeout 60\n" +
                               "MaxClients 100\nLogLevel Connect\nLogFile \"" + m_log + "\"\nPidFile \"" +
                               m_folder.file("pid") + "\"\nConnectPort " + std::to_string(connect_port) + "\n";
            if (!options.user.empty())
                conf += "BasicAuth " + options.user + " " + options.password + "\n";
            write_file(m_folder.file("conf"), conf);
            return std::vector<std::string>{"tinyproxy", "-d", "-c", m_folder.file("conf")};
        });
    }
};

// The two real proxies, how they note a tunnel in their logs, and what they answer when they cannot go on.
struct RealProxy
{
    const char* name;
    const char* connect; // before host:port
    const char *wrong_login, *server_away;
};

class RealProxies : public WebClientProxies, public WithParamInterface<RealProxy>
{
protected:
    std::unique_ptr<ProxyProgram> start_proxy(const ProxyOptions& options = {})
    {
        std::unique_ptr<ProxyProgram> proxy;
        if (GetParam().name == std::string("Squid"))
            proxy = std::make_unique<Squid>(options);
        else
            proxy = std::make_unique<Tinyproxy>(options, secure.port());
        use(proxy->text());
        return proxy;
    }
};

INSTANTIATE_TEST_SUITE_P(, RealProxies,
                         Values(RealProxy{"Squid", "CONNECT ", "407", "503"},
                                RealProxy{"Tinyproxy", ": CONNECT ", "401", "500"}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(RealProxies, CarryPlainRequestsAndTunnels)
{
    auto proxy = start_proxy();
    for (HttpServer* origin : {&server, static_cast<HttpServer*>(&secure)}) {
        EXPECT_EQ("true 200", posted(origin->url()));
        EXPECT_EQ("complete", queued_post(origin->url()));
        EXPECT_EQ(event, origin->requests().at(1).form);
        EXPECT_EQ(origin == &server, origin->requests().at(1).has_header("via")) << "a proxy sees into no tunnel";
    }
    EXPECT_EQ(2u, proxy->log_count("POST " + server.url(), 2));
    EXPECT_LE(1u, proxy->log_count(GetParam().connect +
                                   ("127.0.0.1:" + std::to_string(secure.port())))); // squid: when the tunnel ends
    secure.answer(404);
    EXPECT_EQ("false 200", posted(secure.url())) << "the status of a tunnel is the proxy's";
    EXPECT_EQ("error 0", queued_post(secure.url())) << "and there is none when the tunnel stood already";
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

// Basic authentication as the proxy receives it, which the logs of the real proxies do not show.
TEST_F(WebClientProxies, GetTheirLoginWithEveryCharacter)
{
    const struct
    {
        const char *user, *password, *base64;
    } logins[] = {{"us er", "p@ss:w%rd/", "dXMgZXI6cEBzczp3JXJkLw=="},
                  {"a%41", "%25+&=%4", "YSU0MTolMjUrJj0lNA=="},
                  {"\xc3\xbc", "\xe2\x82\xac#?", "w7w64oKsIz8="},
                  {"user", "", "dXNlcjo="}};
    for (const auto& login : logins) {
        RawServer proxy([](Connection& peer) {
            while (peer.read_request())
                peer.send(peer.request().find("Proxy-Authorization: Basic ") == std::string::npos
                              ? who
                              : "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        });
        use(proxy.text());
        EXPECT_EQ("false 407", posted(server.url()));
        EXPECT_THAT(proxy.requests().at(0), StartsWith("POST " + server.url()));
        EXPECT_THAT(proxy.requests().at(0), Not(AnyOf(HasSubstr("Authorization"), HasSubstr("Expect"))));
        log_in(proxy.text(), login.user, login.password);
        EXPECT_EQ("true 200", executed(server.url()));
        EXPECT_THAT(proxy.requests().back(),
                    HasSubstr(std::string("Proxy-Authorization: Basic ") + login.base64 + "\r\n"));
    }
}

/// A host's own store: what it must have and nothing else.
struct HostsStore : ICredentialStore
{
    explicit HostsStore(bool has_one) : has(has_one) {}
    bool HasCredentials(const char*) override { return has; }
    CUserCredentials* GetUserCredentials(const char*) override { return &login; }
    bool AddCredentials(const char*, scoped_ptr<CUserCredentials>) override { return false; }
    bool RemoveCredentials(const char*) override { return false; }

    bool has;
    CUserCredentials login{"user", "word"};
};

/// Finds the password only when it is asked, as one would that asks the user.
struct AskingStore : CCredentialStore
{
    bool HasCredentials(const char*) override { return true; }
    CUserCredentials* GetUserCredentials(const char*) override
    {
        AddCredentials("all", scoped_ptr<CUserCredentials>(new CUserCredentials{"user", ""}));
        CUserCredentials* login = CCredentialStore::GetUserCredentials("all");
        login->strPassword = "word";
        return login;
    }
};

TEST_F(WebClientProxies, GetTheirLoginFromAHostsStore)
{
    Squid proxy({"user", "word"});
    use(proxy.text());
    HostsStore full(true), empty(false);
    AskingStore asking;
    const std::pair<ICredentialStore*, const char*> stores[] = {
        {&full, "true 200"}, {&empty, "false 407"}, {&asking, "true 200"}};
    for (const auto& [store, expected] : stores) {
        client.SetCredentialStore(store);
        EXPECT_EQ(expected, executed(server.url()));
    }
}

TEST_F(WebClientProxies, ThatFailAreBannedOnlyWhenOutOfReach)
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
        {"is a bad gateway", sends("HTTP/1.1 502 Bad Gateway\r\nContent-Length: 3\r\n\r\nbad"), "false 502",
         "error 502", "error 502", false},
        {"babbles", sends("\1\2garbage\r\n\r\n"), "false 0", "error 0", "error 0", false},
        {"breaks off", sends("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbr"), "false 200", "error 200", "error 200",
         false},
    };
    TransferSettings::total_timeout_ms = 200;
    for (const auto& rule : cases) {
        SCOPED_TRACE(rule.name);
        RawServer proxy(rule.script);
        const std::string text = proxy.text();
        const auto expected = [&](std::string end) { return end + (end.back() == ' ' ? text : ""); };
        use(text);
        EXPECT_EQ(rule.executed, posted(server.url()));
        EXPECT_EQ(rule.banned ? 10 : 1, proxy.connections());
        EXPECT_EQ(rule.banned, manager().IsProxyInBlackList(text.c_str()));
        manager().RemoveProxyFromBlackList(text.c_str());
        EXPECT_EQ(expected(rule.queued), queued_post(server.url()));
        EXPECT_EQ(rule.banned, manager().IsProxyInBlackList(text.c_str()));
        EXPECT_EQ(expected(rule.tunnelled), queued_post(secure.url()));
    }
    EXPECT_EQ(0u, server.count()) << "no way around the proxy";
    EXPECT_EQ(0u, secure.count());
}

TEST_F(WebClientProxies, ThatAreDeadDoNotTrapARequest)
{
    HeldPort dead;
    const std::string away = dead.text(), unknown = "no-such-proxy.invalid:3128";
    for (const std::string& proxy : {away, unknown}) {
        use(proxy);
        for (int again = 0; again < 2; ++again) // the cache answers it all the same
            EXPECT_EQ("false 0", posted(server.url()));
        EXPECT_EQ(proxy == away ? "error -7" : "error 0", queued_post(server.url()));
        EXPECT_EQ(proxy == away, manager().IsProxyInBlackList(proxy.c_str())) << "a name without a host is not blamed";
    }
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
    walk({dead.text(), dead_too.text(), alive.text(), "never:1"});
    EXPECT_EQ("true 200", posted(server.url()));
    EXPECT_EQ(1u, alive.log_count("POST " + server.url()));
    EXPECT_TRUE(chain.IsProxyInBlackList(chain.proxies[0].c_str()));
    EXPECT_TRUE(chain.IsProxyInBlackList(chain.proxies[1].c_str()));
    EXPECT_EQ(alive.text(), remembered());
}

TEST_F(ProxyChains, AreWalkedByQueueingOnceMore)
{
    RawServer asking{std::string(who)};
    walk({dead.text(), asking.text()});
    EXPECT_EQ("error -7", queued_post(server.url()));
    EXPECT_EQ("login 407 " + chain.proxies[1], queued_post(server.url()));
    EXPECT_EQ(chain.proxies[1], remembered());
}

TEST_F(ProxyChains, ThatAreAllBannedLeaveTheDirectWay)
{
    walk({dead.text()});
    log_in(dead.text(), "user", "word");
    EXPECT_EQ("true 200", posted(server.url()));
    for (const char* meant_for_the_proxy : {"via", "expect", "proxy-authorization"})
        EXPECT_FALSE(server.requests().at(0).has_header(meant_for_the_proxy)) << meant_for_the_proxy;
    EXPECT_EQ("", remembered()) << "a direct way is no proxy to remember";
}

TEST_F(WebClientProxies, OfTheEnvironmentCountOnlyWithoutAManager)
{
    HeldPort dead;
    setenv("http_proxy", ("http://" + dead.text()).c_str(), 1);
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
    use(dead.text());
    EXPECT_EQ("false 0", posted(server.url())) << "no host is exempt from the manager's choice";
    unsetenv("no_proxy");
}

TEST_F(WebClientProxies, AreBlamedForThreeResultsOnly)
{
    CurlEasyHandle handle;
    const char* url = "http://host/";
    handle.spProxyInfo.Reset(new CProxyInfo);
    handle.spProxyInfo->SetProxy("p:1");
    EXPECT_FALSE(client.HandleProxyError(CURLE_COULDNT_CONNECT, &handle, url)) << "not in use";
    handle.spProxyInfo->bUseProxy = 1;
    for (long result = 0; result < CURL_LAST; ++result)
        EXPECT_EQ(result == 6 || result == 7 || result == 28, client.HandleProxyError(result, &handle, url)) << result;
    for (const char* proxy : {"p:1", "q:2"}) {
        handle.spProxyInfo->SetProxy(proxy);
        EXPECT_TRUE(client.HandleProxySuccess(0, &handle, url));
    }
    std::string known;
    EXPECT_TRUE(manager().FindProxyInCache(url, known));
    EXPECT_EQ("p:1", known) << "the one that is known stays";
}

/// Names one dead proxy, and then none.
struct Stubborn : CProxyManager
{
    bool GetProxy(const char*, scoped_ptr<CProxyInfo>& record) override
    {
        record.Reset(new CProxyInfo);
        record->SetProxy(dead.text().c_str());
        record->bUseProxy = asked++ < times;
        return record->bUseProxy;
    }

    HeldPort dead;
    int times = 0, asked = 0;
};

TEST_F(WebClientProxies, AreTriedTenTimesAtMostHoweverOftenOneIsNamed)
{
    Stubborn manager;
    client.SetProxyManager(&manager);
    for (const int times : {0, 3, 9, 10, 1000}) {
        manager.times = times;
        manager.asked = 0;
        EXPECT_EQ(times < 10 ? "true 200" : "false 0", posted(server.url())) << times;
        EXPECT_EQ(std::min(times + 1, 10), manager.asked);
    }
    client.Close(); // before the manager goes
}

/// Promises a proxy and gives none.
struct Liar : CProxyManager
{
    bool GetProxy(const char*, scoped_ptr<CProxyInfo>&) override { return true; }
};

TEST(WebClientProxiesDeathTest, AbortWhenAPromisedProxyIsNotGiven)
{
    Liar manager;
    CurlEasyHandle handle;
    EXPECT_ASSERTION(WebClient::SetProxyToNextValidProxy(&handle, "http://host/", &manager, nullptr),
                     "sdk/src/TransferProxy", "pHandle->spProxyInfo.Get()");
}

std::atomic<int> lines_with_secret{0};

TEST_F(WebClientProxies, AreTalkedToWithoutAPasswordInAnyOutput)
{
    tova_log_register([](int32_t, const char* message) { lines_with_secret += strstr(message, "hunter2") != nullptr; });
    internal::CaptureStdout();
    internal::CaptureStderr();
    Squid proxy({"user", "hunter2-never-shown"});
    HeldPort dead;
    std::string output;
    for (const std::string& text : {proxy.text(), dead.text(), std::string("odd://127.0.0.1:1")}) {
        use(text);
        for (const char* password : {"hunter2-never-shown", "hunter2-wrong", "hunter2%"}) {
            log_in(text, "user", password);
            for (const std::string& url : {server.url(), secure.url(), std::string("http://127.0.0.1:1/")}) {
                posted(url);
                output += client.GetLastError() + "\n";
                queued_post(url);
            }
        }
    }
    client.Close();
    output += internal::GetCapturedStdout() + internal::GetCapturedStderr() + proxy.log();
    tova_log_register(nullptr);
    EXPECT_THAT(output, HasSubstr("POST")) << "the proxy's log is part of it";
    EXPECT_THAT(output, Not(HasSubstr("hunter2")));
    EXPECT_EQ(0, lines_with_secret);
    EXPECT_LT(0u, server.count());
}

} // namespace
