#include "AnalyticsSDK/ProxyUtilities.h"

#include <gtest/gtest.h>

namespace {

using namespace AnalyticsSDK;
using Texts = std::vector<std::string>;

constexpr const char* null = nullptr;

// A fuzzer compares the splitting with a model byte by byte; these rows are what it does not reach.
TEST(ProxyStrings, AreSplitAtSemicolonsAndSpaces)
{
    const struct
    {
        const char* text;
        Texts proxies; // when it lists proxies
        Texts entries; // when it lists what bypasses them
        bool local;
    } cases[] = {
        {nullptr, {}, {}, false},
        {"a:8080;;  :: b\t: : ", {"a:8080", "b\t:"}, {"a:8080", "::", "b\t:", ":"}, false},
        {"<local>; *.example <LOCAL>", {"<local>", "*.example", "<LOCAL>"}, {"*.example", "<LOCAL>"}, true},
    };
    for (const auto& rule : cases) {
        Texts proxies{"left over"}, entries{"left over"};
        bool local = !rule.local;
        TokenizeProxyString(rule.text, proxies);
        TokenizeProxyBypassString(rule.text, entries, local);
        EXPECT_EQ(rule.proxies, proxies);
        EXPECT_EQ(rule.entries, entries);
        EXPECT_EQ(rule.local, local);
        EXPECT_FALSE(IsProxyBypassed("a", entries, local)) << "no host ever is";
    }
    for (const char* host : {null, "", "intranet", "intranet.corp", ".", "10.0.0.1"})
        EXPECT_EQ(host && host == std::string("intranet"), IsHostLocal(host)) << "only a name without a dot";
}

TEST(ProxyCache, KnowsTheNewestProxyOfAHost)
{
    CProxyManager manager;
    std::string proxy;
    EXPECT_TRUE(manager.AddProxyToCache("http://host:8080/a", "p:1"));
    EXPECT_TRUE(manager.FindProxyInCache("https://host/b?c", proxy));
    EXPECT_EQ("p:1", proxy);
    EXPECT_TRUE(manager.AddProxyToCache("http://host/", "q:2"));
    EXPECT_TRUE(manager.FindProxyInCache("http://host/", proxy));
    EXPECT_EQ("q:2", proxy);
    for (const char* url : {null, "", "host", "10.1.2.3/x", "http://", "http:///x"}) {
        EXPECT_FALSE(manager.AddProxyToCache(url, "p:1"));
        EXPECT_FALSE(manager.FindProxyInCache(url, proxy)) << proxy;
    }
    for (const char* nothing : {null, ""})
        EXPECT_FALSE(manager.AddProxyToCache("http://third/", nothing));
    EXPECT_FALSE(manager.FindProxyInCache("http://third/", proxy));
    EXPECT_EQ("", proxy) << "what the text held before is no answer";
}

TEST(ProxyBans, EndByThemselvesAtTheirFirstEnd)
{
    CProxyManager manager;
    const auto banned = [&] { return manager.IsProxyInBlackList("p"); };
    manager.AddProxyToBlackList("p");
    manager.AddProxyToBlackList("p", 0);
    EXPECT_TRUE(banned()) << "the first end holds";
    manager.RemoveProxyFromBlackList("p");
    EXPECT_FALSE(banned());
    manager.AddProxyToBlackList("p", 0);
    manager.AddProxyToBlackList("p");
    EXPECT_FALSE(banned()) << "a ban of no length, which the second did not extend";
    manager.AddProxyToBlackList("p");
    EXPECT_TRUE(banned()) << "the ended one was taken off the list";
    for (const char* nothing : {null, ""}) {
        manager.AddProxyToBlackList(nothing);
        EXPECT_FALSE(manager.IsProxyInBlackList(nothing));
        manager.RemoveProxyFromBlackList(nothing);
    }
}

class ProxyOfAUrl : public ::testing::Test
{
protected:
    // The proxy that is to be used, or "none".
    std::string asked(const char* url = "http://host/")
    {
        const bool found = manager.GetProxy(url, record);
        EXPECT_EQ(found, record && record->bUseProxy);
        return found ? record->GetProxy() : "none";
    }
    void make_record(Texts proxies, bool raised)
    {
        record.Reset(new CProxyInfo);
        record->vProxies = std::move(proxies);
        record->bUseProxy = raised;
    }

    CProxyManager manager;
    scoped_ptr<CProxyInfo> record;
};

TEST_F(ProxyOfAUrl, IsTheCachedOneEvenWhileItIsBanned)
{
    for (const char* url : {null, "", "http://host/"}) {
        record.Reset();
        EXPECT_EQ("none", asked(url));
        EXPECT_STREQ("", record->GetProxy()) << "a record is made all the same";
    }
    manager.AddProxyToCache("http://host/", "cached");
    manager.AddProxyToBlackList("cached");
    EXPECT_EQ("cached", asked());
    make_record({"listed"}, true);
    EXPECT_EQ("cached", asked()) << "before the record's own list";
}

TEST_F(ProxyOfAUrl, WalksAListThatTheCacheRaisedUntilAllAreBanned)
{
    make_record({"listed"}, false);
    EXPECT_EQ("none", asked()) << "never raised";
    make_record({"a", "b"}, true);
    EXPECT_EQ("a", asked());
    manager.AddProxyToBlackList("a");
    EXPECT_EQ("b", asked());
    manager.AddProxyToBlackList("b");
    EXPECT_EQ("none", asked());
    manager.RemoveProxyFromBlackList("a");
    EXPECT_EQ("none", asked()) << "a lowered record stays lowered until the cache raises it";
    std::string proxy = "left over";
    EXPECT_FALSE(manager.GetFirstValidProxy(nullptr, proxy));
    EXPECT_EQ("", proxy);
}

} // namespace
