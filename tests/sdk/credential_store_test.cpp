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
    CUserCredentials copy;
    EXPECT_TRUE(store.AddCredentials("proxy:3128", first));
    EXPECT_FALSE(first);
    EXPECT_TRUE(store.AddCredentials("proxy:3128", second));
    ASSERT_TRUE(store.HasCredentials("proxy:3128"));
    EXPECT_EQ("second", store.GetUserCredentials("proxy:3128")->strUserName);
    EXPECT_TRUE(store.CopyUserCredentials("proxy:3128", copy));
    EXPECT_TRUE(store.RemoveCredentials("proxy:3128"));
    EXPECT_EQ("second:2", copy.strUserName + ":" + copy.strPassword) << "a copy outlives the record";
    // The first question leaves an entry, which reads as no login.
    for (const char* other :
         {"proxy:3128", "proxy", "PROXY:3128", "http://proxy:3128", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(nullptr, store.GetUserCredentials(other));
        EXPECT_FALSE(store.HasCredentials(other) || store.CopyUserCredentials(other, copy));
        EXPECT_EQ(other && *other, store.RemoveCredentials(other)) << "true for what was never there";
    }
}

TEST(CredentialStore, RefusesWithoutTakingTheRecord)
{
    CCredentialStore store;
    auto kept = login("user", "password");
    scoped_ptr<CUserCredentials> none;
    EXPECT_FALSE(store.AddCredentials("", kept) || store.AddCredentials(nullptr, kept));
    EXPECT_EQ("user", kept->strUserName);
    EXPECT_FALSE(store.AddCredentials("proxy", none));
}

TEST(CredentialStore, DescribesALoginWithoutItsPassword)
{
    EXPECT_EQ("user:*****", DescribeCredentials(*login("user", "secret")));
    EXPECT_EQ(":*****", DescribeCredentials(CUserCredentials()));
}

} // namespace
