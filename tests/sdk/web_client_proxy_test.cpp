#include "CurlHandles.h"
#include "HandleParameters.h"
#include "lumo/tova/runtime.h"
#include "support/death.h"
#include "support/ports.h"
#include "support/proxies.h"
#include "support/session.h"
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

// How the two real proxies note a request in their logs.
struct RealProxy
{
    const char* name;
    std::unique_ptr<ProxyProgram> (*start)(const ProxyOptions&);
    const char* post;    // before the URL
    const char* connect; // before host:port
};

template <class Program>
std::unique_ptr<ProxyProgram> start(const ProxyOptions& options)
{
    return std::make_unique<Program>(options);
}

const RealProxy real_proxies[] = {
    {"Squid", start<Squid>, "/200 ", "CONNECT "},
    {"Tinyproxy", start<Tinyproxy>, ": POST ", ": CONNECT "},
};

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

INSTANTIATE_TEST_SUITE_P(, RealProxies, ::testing::ValuesIn(real_proxies),
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
}

TEST_P(RealProxies, AskForALoginWithWhichTheNextRequestPasses)
{
    auto proxy = start_proxy({"user", "password"});
    for (HttpServer* origin : {&server, static_cast<HttpServer*>(&secure)}) {
        client.GetCredentialStore()->RemoveCredentials(proxy->text().c_str());
        EXPECT_EQ("false 407", posted(origin->url()));
        EXPECT_EQ("login 407 " + proxy->text(), queued_post(origin->url()));
        EXPECT_EQ(0u, origin->count()) << "nothing got past the proxy";
        EXPECT_FALSE(manager().IsProxyInBlackList(proxy->text().c_str()));
        log_in(proxy->text(), "user", "password");
        EXPECT_EQ("true 200", posted(origin->url()));
        EXPECT_EQ("complete", queued_post(origin->url()));
        ASSERT_EQ(2u, origin->count());
        EXPECT_EQ(event, origin->requests().at(1).form);
        EXPECT_FALSE(origin->requests().at(1).has_header("proxy-authorization"));
    }
}

TEST_P(RealProxies, TakeBodiesOfEverySizeWithALogin)
{
    auto proxy = start_proxy({"user", "word"});
    log_in(proxy->text(), "user", "word");
    for (std::size_t size : {0, 100'000, 1'000'000}) {
        event["data"] = std::string(size, 'x');
        EXPECT_EQ("true 200", posted(server.url())) << size;
        EXPECT_EQ(size, server.requests().back().form.at("data").size());
    }
    EXPECT_EQ("complete", queued(server.url(), RequestTypePostMultipart, &event));
}

TEST_P(RealProxies, RefuseAWrongLogin)
{
    auto proxy = start_proxy({"user", "word"});
    log_in(proxy->text(), "user", "wrong");
    const bool textbook = GetParam().name == std::string("Squid");
    EXPECT_EQ(textbook ? "false 407" : "false 401", posted(server.url()));
    EXPECT_EQ(textbook ? "login 407 " + proxy->text() : "error 401", queued_post(server.url()));
    EXPECT_EQ(0u, server.count());
}

TEST_P(RealProxies, SayThatTheServerIsAwayWithoutBeingBanned)
{
    auto proxy = start_proxy();
    HeldPort away;
    const char* status = GetParam().name == std::string("Squid") ? "503" : "500";
    EXPECT_EQ(std::string("false ") + status, posted(away.url()));
    EXPECT_EQ(std::string("error ") + status, queued_post(away.url()));
    EXPECT_FALSE(manager().IsProxyInBlackList(proxy->text().c_str()));
}

TEST_F(WebClientProxies, GetLoginsWithEveryCharacter)
{
    const struct
    {
        const char *user, *password;
    } logins[] = {{"us er", "p@ss:w%rd/"}, {"a%41", "%25+&=%4"}, {"\xc3\xbc", "\xe2\x82\xac#?"}, {"user", ""}};
    for (const auto& login : logins) {
        // Basic authentication as the proxy sees it, which is what no real proxy's log tells.
        RawServer proxy([](Connection& peer) {
            while (peer.read_request())
                peer.send(peer.request().find("Proxy-Authorization: Basic ") == std::string::npos
                              ? who
                              : "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        });
        use(at_loopback(proxy.port()));
        log_in(at_loopback(proxy.port()), login.user, login.password);
        EXPECT_EQ("true 200", posted(server.url()));
        const std::string clear = std::string(login.user) + ":" + login.password;
        std::string base64(4 * ((clear.size() + 2) / 3), '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()),
                        reinterpret_cast<const unsigned char*>(clear.data()), static_cast<int>(clear.size()));
        EXPECT_NE(std::string::npos, proxy.requests().back().find("Proxy-Authorization: Basic " + base64 + "\r\n"))
            << clear;
    }
}

TEST_F(WebClientProxies, GetNoLoginWhenThereIsNone)
{
    RawServer proxy(std::string("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    use(at_loopback(proxy.port()));
    EXPECT_EQ("true 200", posted(server.url()));
    const std::string request = proxy.requests().at(0);
    EXPECT_EQ(0u, request.find("POST " + server.url()));
    EXPECT_EQ(std::string::npos, request.find("Authorization")) << request;
    EXPECT_EQ(std::string::npos, request.find("Expect")) << request;
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

struct Failing
{
    const char* name;
    RawServer::Script script;
    const char *executed, *queued; // for a plain request
    const char* tunnelled;         // queued, for https
    bool banned;
};

class FailingProxies : public WebClientProxies, public ::testing::WithParamInterface<Failing>
{};

void take_and_send(Connection& peer, const char* reply)
{
    if (peer.read_request())
        peer.send(reply);
}

const Failing failing_proxies[] = {
    {"Resets", [](Connection& peer) { peer.read_some(), peer.reset(); }, "false 0", "error 0", "error 0", false},
    {"Closes", [](Connection& peer) { peer.read_some(); }, "false 0", "error 0", "error 0", false},
    {"Hangs", hold_open, "false 0", "error -7", "error -7", true},
    {"AsksWho", [](Connection& peer) { take_and_send(peer, who); }, "false 407", "login 407 ", "login 407 ", false},
    {"IsABadGateway", [](Connection& peer) { take_and_send(peer, bad_gateway); }, "false 502", "error 502", "error 502",
     false},
    {"Babbles", [](Connection& peer) { take_and_send(peer, "\1\2garbage\r\n\r\n"); }, "false 0", "error 0", "error 0",
     false},
    {"BreaksOff", [](Connection& peer) { take_and_send(peer, "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nbr"); },
     "false 200", "error 200", "error 200", false},
};

INSTANTIATE_TEST_SUITE_P(, FailingProxies, ::testing::ValuesIn(failing_proxies),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(FailingProxies, AreReportedAndBannedOnlyWhenTheyCannotBeReached)
{
    TransferSettings::total_timeout_ms = 300;
    RawServer proxy(GetParam().script);
    const std::string text = at_loopback(proxy.port());
    use(text);
    const std::string queued_end = GetParam().queued, tunnel_end = GetParam().tunnelled;
    EXPECT_EQ(GetParam().executed, posted(server.url()));
    EXPECT_EQ(1, proxy.connections()) << "one chance per request";
    EXPECT_EQ(GetParam().banned, manager().IsProxyInBlackList(text.c_str()));
    manager().RemoveProxyFromBlackList(text.c_str());
    EXPECT_EQ(queued_end + (queued_end.back() == ' ' ? text : ""), queued_post(server.url()));
    EXPECT_EQ(GetParam().banned, manager().IsProxyInBlackList(text.c_str()));
    EXPECT_EQ(tunnel_end + (tunnel_end.back() == ' ' ? text : ""), queued_post(secure.url()));
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
    EXPECT_EQ("error -7", queued_post(secure.url()));
    use("no-such-proxy.invalid:3128");
    EXPECT_EQ("false 0", posted(server.url()));
    EXPECT_EQ("error 0", queued_post(server.url()));
    EXPECT_FALSE(manager().IsProxyInBlackList("no-such-proxy.invalid:3128")) << "a name without a host is not blamed";
    EXPECT_EQ(0u, server.count() + secure.count());
}

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
    RawServer asking([](Connection& peer) { take_and_send(peer, who); });
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
class Liar : public CProxyManager
{
public:
    bool GetProxy(const char*, scoped_ptr<CProxyInfo>& record) override
    {
        if (with_record)
            record.Reset(new CProxyInfo);
        return true;
    }
    bool with_record = false;
};

TEST(WebClientProxiesDeathTest, AbortWhenTheManagerPromisesAProxyAndGivesNone)
{
    Liar manager;
    CurlEasyHandle handle;
    const auto set = [&] { WebClient::SetProxyToNextValidProxy(&handle, "http://host/", &manager, nullptr); };
    EXPECT_ASSERTION(set(), "sdk/src/WebClientCurl", "pHandle->spProxyInfo.Get()");
    manager.with_record = true;
    EXPECT_ASSERTION(set(), "sdk/src/WebClientCurl", "0 < strlen(pszProxy)");
}

void note_code(void* context, uint32_t code, double)
{
    static_cast<std::atomic<unsigned>*>(context)->store(code);
}

TEST_F(WebClientProxies, LetTheSessionsObserversHearOfAMissingLogin)
{
    Squid proxy({"user", "word"});
    use(proxy.text());
    support::Session session;
    std::atomic<unsigned> failed{0}, complete{99};
    analytics_observer_add(session, "error", note_code, &failed);
    analytics_observer_add(session, "complete", note_code, &complete);
    IProgressCallback* callback = reinterpret_cast<HandleParameters*>(session.handle);
    client.QueueRequest(server.url().c_str(), callback, RequestTypePost, &event, "");
    EXPECT_TRUE(support::wait_until([&] { return failed == 202; }));
    log_in(proxy.text(), "user", "word");
    client.QueueRequest(server.url().c_str(), callback, RequestTypePost, &event, "");
    EXPECT_TRUE(support::wait_until([&] { return complete == 0; }));
    EXPECT_EQ(event, server.requests().at(0).form);
    client.Close(); // before the session goes, which it calls back
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
