#include "AnalyticsSDK/ProxyUtilities.h"

#include "lumo/proxy.h"
#include "support/death.h"

#include <gtest/gtest.h>

namespace {

using namespace AnalyticsSDK;
using Texts = std::vector<std::string>;

TEST(ProxyStrings, AreSplitAtSemicolonsAndSpaces)
{
    const struct
    {
        const char* text;
        Texts proxies; // when it lists proxies
        Texts entries; // when it lists what bypasses them
        bool local = false;
    } cases[] = {
        {nullptr, {}, {}},
        {"", {}, {}},
        {" ; ;; ", {}, {}},
        {"a:8080; b:3128", {"a:8080", "b:3128"}, {"a:8080", "b:3128"}},
        {"a:8080;;  b:3128 ", {"a:8080", "b:3128"}, {"a:8080", "b:3128"}},
        {": :: : ::", {}, {":", "::", ":", "::"}},
        {"::: :a", {":::", ":a"}, {":::", ":a"}},
        {"http=http://p:1;socks5://[::1]:2",
         {"http=http://p:1", "socks5://[::1]:2"},
         {"http=http://p:1", "socks5://[::1]:2"}},
        {"b a b", {"b", "a", "b"}, {"b", "a", "b"}},
        {"a\tb,c", {"a\tb,c"}, {"a\tb,c"}},
        {"<local>; *.example", {"<local>", "*.example"}, {"*.example"}, true},
        {"<LOCAL>", {"<LOCAL>"}, {"<LOCAL>"}},
        {"<local><local> <local>", {"<local><local>", "<local>"}, {"<local><local>"}, true},
    };
    for (const auto& rule : cases) {
        SCOPED_TRACE(rule.text ? rule.text : "(null)");
        Texts proxies{"left over"}, entries{"left over"};
        bool local = !rule.local;
        TokenizeProxyString(rule.text, proxies);
        TokenizeProxyBypassString(rule.text, entries, local);
        EXPECT_EQ(rule.proxies, proxies);
        EXPECT_EQ(rule.entries, entries);
        EXPECT_EQ(rule.local, local);
        EXPECT_FALSE(IsProxyBypassed("a", entries, local)) << "no host ever is";
    }
}

TEST(ProxyBypass, CallsAHostLocalThatHasNoDot)
{
    EXPECT_TRUE(IsHostLocal("intranet"));
    for (const char* host : {static_cast<const char*>(nullptr), "", "intranet.corp", ".", "10.0.0.1"})
        EXPECT_FALSE(IsHostLocal(host)) << (host ? host : "(null)");
}

TEST(SystemProxies, AreNeverFoundAndLeaveTheirResultsAlone)
{
    std::string proxies = "p", bypass = "b";
    EXPECT_FALSE(lumo::proxy::get_for_url("http://host/", proxies, bypass));
    EXPECT_EQ("p, b", proxies + ", " + bypass);
    CProxyInfo info;
    info.vProxies = {"kept"};
    EXPECT_FALSE(GetProxyInfoForUrl("http://host/", &info));
    EXPECT_FALSE(GetProxyInfoForUrl("", &info));
    EXPECT_FALSE(GetProxyInfoForUrl(nullptr, &info));
    EXPECT_FALSE(GetProxyInfoForUrl("http://host/", nullptr));
    EXPECT_EQ(Texts{"kept"}, info.vProxies);
}

TEST(ProxyCache, KnowsProxiesByHost)
{
    CProxyManager manager;
    std::string proxy = "left over";
    EXPECT_FALSE(manager.FindProxyInCache("http://host/", proxy));
    EXPECT_EQ("", proxy);
    EXPECT_TRUE(manager.AddProxyToCache("http://host:8080/a", "p:1"));
    EXPECT_TRUE(manager.FindProxyInCache("https://host/b?c", proxy));
    EXPECT_EQ("p:1", proxy);
    EXPECT_TRUE(manager.AddProxyToCache("http://host/", "q:2"));
    EXPECT_TRUE(manager.FindProxyInCache("http://host/", proxy));
    EXPECT_EQ("q:2", proxy);
    EXPECT_FALSE(manager.FindProxyInCache("http://other/", proxy));
    for (const char* url : {static_cast<const char*>(nullptr), "", "host", "10.1.2.3/x", "http://", "http:///x"}) {
        EXPECT_FALSE(manager.AddProxyToCache(url, "p:1")) << (url ? url : "(null)");
        EXPECT_FALSE(manager.FindProxyInCache(url, proxy)) << (url ? url : "(null)");
    }
    EXPECT_FALSE(manager.AddProxyToCache("http://third/", ""));
    EXPECT_FALSE(manager.AddProxyToCache("http://third/", nullptr));
}

TEST(ProxyBans, EndByThemselvesAndAreNotExtended)
{
    CProxyManager manager;
    EXPECT_FALSE(manager.IsProxyInBlackList("p"));
    manager.AddProxyToBlackList("p");
    EXPECT_TRUE(manager.IsProxyInBlackList("p"));
    manager.AddProxyToBlackList("p", 0);
    EXPECT_TRUE(manager.IsProxyInBlackList("p")) << "the first end holds";
    manager.RemoveProxyFromBlackList("p");
    EXPECT_FALSE(manager.IsProxyInBlackList("p"));
    manager.AddProxyToBlackList("p", 0);
    manager.AddProxyToBlackList("p");
    EXPECT_FALSE(manager.IsProxyInBlackList("p")) << "a ban of no length, which the second did not extend";
    manager.AddProxyToBlackList("p");
    EXPECT_TRUE(manager.IsProxyInBlackList("p")) << "the ended one was taken off the list";
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        manager.AddProxyToBlackList(nothing);
        EXPECT_FALSE(manager.IsProxyInBlackList(nothing));
        manager.RemoveProxyFromBlackList(nothing);
    }
}

TEST(ProxyChoice, TakesTheFirstCandidateThatIsNotBanned)
{
    CProxyManager manager;
    CProxyInfo info;
    std::string proxy = "left over";
    EXPECT_FALSE(manager.GetFirstValidProxy(&info, proxy));
    EXPECT_EQ("", proxy);
    EXPECT_FALSE(manager.GetFirstValidProxy(nullptr, proxy));
    info.vProxies = {"a", "b", "c"};
    for (const char* expected : {"a", "b", "c"}) {
        EXPECT_TRUE(manager.GetFirstValidProxy(&info, proxy));
        EXPECT_EQ(expected, proxy);
        manager.AddProxyToBlackList(expected);
    }
    EXPECT_FALSE(manager.GetFirstValidProxy(&info, proxy));
}

class ProxyOfAUrl : public ::testing::Test
{
protected:
    bool ask(const char* url = "http://host/") { return manager.GetProxy(url, record); }
    void make_record(Texts proxies, bool raised)
    {
        record.Reset(new CProxyInfo);
        record->vProxies = std::move(proxies);
        record->bUseProxy = raised;
    }

    CProxyManager manager;
    scoped_ptr<CProxyInfo> record;
};

TEST_F(ProxyOfAUrl, MakesARecordEvenWhenThereIsNoProxy)
{
    for (const char* url : {static_cast<const char*>(nullptr), "", "http://host/"}) {
        record.Reset();
        EXPECT_FALSE(ask(url));
        ASSERT_TRUE(record);
        EXPECT_EQ(0, record->bUseProxy);
        EXPECT_STREQ("", record->GetProxy());
    }
}

TEST_F(ProxyOfAUrl, IsTheCachedOneEvenWhileItIsBanned)
{
    manager.AddProxyToCache("http://host/", "cached");
    manager.AddProxyToBlackList("cached");
    EXPECT_TRUE(ask());
    EXPECT_NE(0, record->bUseProxy);
    EXPECT_STREQ("cached", record->GetProxy());
    make_record({"listed"}, true);
    EXPECT_TRUE(ask());
    EXPECT_STREQ("cached", record->GetProxy()) << "before the record's own list";
}

TEST_F(ProxyOfAUrl, WalksAListThatTheCacheRaisedUntilAllAreBanned)
{
    make_record({"listed"}, false);
    EXPECT_FALSE(ask()) << "never raised";
    make_record({"a", "b"}, true);
    EXPECT_TRUE(ask());
    EXPECT_STREQ("a", record->GetProxy());
    manager.AddProxyToBlackList("a");
    EXPECT_TRUE(ask());
    EXPECT_STREQ("b", record->GetProxy());
    manager.AddProxyToBlackList("b");
    EXPECT_FALSE(ask());
    EXPECT_EQ(0, record->bUseProxy);
    manager.RemoveProxyFromBlackList("a");
    EXPECT_FALSE(ask()) << "a lowered record stays lowered until the cache raises it";
    record->SetProxy(nullptr);
    EXPECT_STREQ("", record->GetProxy());
}

} // namespace
