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
        Texts proxies;
    } cases[] = {
        {nullptr, {}},
        {"", {}},
        {" ; ;; ", {}},
        {"a:8080; b:3128", {"a:8080", "b:3128"}},
        {"a:8080;;  b:3128 ", {"a:8080", "b:3128"}},
        {": :: : ::", {}},
        {"::: :a", {":::", ":a"}},
        {"http=http://p:1;socks5://[::1]:2", {"http=http://p:1", "socks5://[::1]:2"}},
        {"b a b", {"b", "a", "b"}},
        {"a\tb,c", {"a\tb,c"}},
    };
    for (const auto& rule : cases) {
        Texts out{"left over"};
        TokenizeProxyString(rule.text, out);
        EXPECT_EQ(rule.proxies, out) << (rule.text ? rule.text : "(null)");
    }
}

TEST(ProxyBypassStrings, KeepEverythingButTheLocalMark)
{
    const struct
    {
        const char* text;
        Texts entries;
        bool local;
    } cases[] = {
        {nullptr, {}, false},
        {"", {}, false},
        {"<local>; *.example", {"*.example"}, true},
        {"<LOCAL>", {"<LOCAL>"}, false},
        {": ::;<local><local> <local>", {":", "::", "<local><local>"}, true},
        {"a;b c", {"a", "b", "c"}, false},
    };
    for (const auto& rule : cases) {
        Texts out{"left over"};
        bool local = !rule.local;
        TokenizeProxyBypassString(rule.text, out, local);
        EXPECT_EQ(rule.entries, out) << (rule.text ? rule.text : "(null)");
        EXPECT_EQ(rule.local, local) << (rule.text ? rule.text : "(null)");
    }
}

TEST(ProxyBypass, NeverExemptsAHost)
{
    Texts bypass{"host", "*"};
    EXPECT_FALSE(IsProxyBypassed("host", bypass, true));
    EXPECT_TRUE(IsHostLocal("intranet"));
    for (const char* host : {static_cast<const char*>(nullptr), "", "intranet.corp", ".", "10.0.0.1"})
        EXPECT_FALSE(IsHostLocal(host)) << (host ? host : "(null)");
}

TEST(SystemProxies, AreNeverFoundAndLeaveTheirResultsAlone)
{
    std::string proxies = "p", bypass = "b";
    EXPECT_FALSE(lumo::proxy::get_for_url("http://host/", proxies, bypass));
    EXPECT_EQ("p"
              "b",
              proxies + bypass);
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

TEST_F(ProxyOfAUrl, IsNotTakenFromAListThatTheCacheNeverRaised)
{
    make_record({"listed"}, false);
    EXPECT_FALSE(ask());
    EXPECT_STREQ("", record->GetProxy());
}

TEST_F(ProxyOfAUrl, WalksARaisedListUntilAllAreBanned)
{
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
