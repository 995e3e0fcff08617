#include "AnalyticsSDK/CredentialStore.h"

#include <gtest/gtest.h>

namespace {

using namespace AnalyticsSDK;

scoped_ptr<CUserCredentials> login(const std::string& user, const std::string& password)
{
    scoped_ptr<CUserCredentials> made(new CUserCredentials);
    made->strUserName = user;
    made->strPassword = password;
    return made;
}

TEST(CredentialStore, KeepsTheLastLoginOfEachProxyUnderItsExactText)
{
    CCredentialStore store;
    auto first = login("first", "1"), second = login("second", "2");
    EXPECT_TRUE(store.AddCredentials("proxy:3128", first));
    EXPECT_FALSE(first);
    EXPECT_TRUE(store.AddCredentials("proxy:3128", second));
    ASSERT_TRUE(store.HasCredentials("proxy:3128"));
    EXPECT_EQ("second", store.GetUserCredentials("proxy:3128")->strUserName);
    for (const char* other : {"proxy", "PROXY:3128", "proxy:3129", "http://proxy:3128"})
        EXPECT_FALSE(store.HasCredentials(other)) << other;
}

TEST(CredentialStore, RefusesWithoutTakingTheRecord)
{
    CCredentialStore store;
    auto kept = login("user", "password");
    scoped_ptr<CUserCredentials> none;
    EXPECT_FALSE(store.AddCredentials("", kept));
    EXPECT_FALSE(store.AddCredentials(nullptr, kept));
    EXPECT_EQ("user", kept->strUserName);
    EXPECT_FALSE(store.AddCredentials("proxy", none));
    for (const char* nothing : {static_cast<const char*>(nullptr), ""}) {
        CUserCredentials out;
        EXPECT_FALSE(store.HasCredentials(nothing));
        EXPECT_EQ(nullptr, store.GetUserCredentials(nothing));
        EXPECT_FALSE(store.RemoveCredentials(nothing));
        EXPECT_FALSE(store.CopyUserCredentials(nothing, out));
    }
}

TEST(CredentialStore, AnswersForAnUnknownProxyHoweverOftenItIsAsked)
{
    CCredentialStore store;
    CUserCredentials out;
    EXPECT_FALSE(store.HasCredentials("unknown"));
    EXPECT_EQ(nullptr, store.GetUserCredentials("unknown"));
    EXPECT_FALSE(store.HasCredentials("unknown"));
    EXPECT_FALSE(store.CopyUserCredentials("unknown", out));
    EXPECT_TRUE(store.RemoveCredentials("unknown"));
    EXPECT_TRUE(store.RemoveCredentials("never seen"));
}

TEST(CredentialStore, HandsOutCopiesThatOutliveTheRecord)
{
    CCredentialStore store;
    auto record = login("user", "password");
    store.AddCredentials("proxy", record);
    CUserCredentials copy;
    EXPECT_TRUE(store.CopyUserCredentials("proxy", copy));
    EXPECT_TRUE(store.RemoveCredentials("proxy"));
    EXPECT_EQ("user:password", copy.strUserName + ":" + copy.strPassword);
}

TEST(CredentialStore, DescribesALoginWithoutItsPassword)
{
    EXPECT_EQ("user:*****", DescribeCredentials(*login("user", "secret")));
    EXPECT_EQ(":*****", DescribeCredentials(CUserCredentials()));
}

} // namespace
