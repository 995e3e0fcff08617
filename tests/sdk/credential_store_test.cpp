#include "AnalyticsSDK/CredentialStore.h"

#include <gtest/gtest.h>

namespace {

using namespace AnalyticsSDK;

scoped_ptr<CUserCredentials> login(const std::string& user, const std::string& password)
{
    return scoped_ptr<CUserCredentials>(new CUserCredentials{user, password});
}

TEST(CredentialStore, KeepsTheLastLoginOfEachProxyUnderItsExactText)
{
    CCredentialStore store;
    CUserCredentials copy;
    EXPECT_TRUE(store.AddCredentials("proxy:3128", login("first", "1")));
    EXPECT_TRUE(store.AddCredentials("proxy:3128", login("second", "2")));
    ASSERT_TRUE(store.HasCredentials("proxy:3128"));
    EXPECT_EQ("second", store.GetUserCredentials("proxy:3128")->strUserName);
    EXPECT_TRUE(store.CopyUserCredentials("proxy:3128", copy));
    EXPECT_TRUE(store.RemoveCredentials("proxy:3128"));
    EXPECT_EQ("second:2", copy.strUserName + ":" + copy.strPassword) << "a copy outlives the record";
    // The first question leaves an entry, which reads as no login.
    for (const char* other :
         {"proxy:3128", "proxy", "PROXY:3128", "http://proxy:3128", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(nullptr, store.GetUserCredentials(other));
        EXPECT_FALSE(store.HasCredentials(other));
        EXPECT_FALSE(store.CopyUserCredentials(other, copy));
        EXPECT_EQ(other && *other, store.RemoveCredentials(other)) << "true for what was never there";
        EXPECT_EQ(other && *other, store.AddCredentials(other, login("user", ""))) << "and for any text";
        EXPECT_FALSE(store.AddCredentials(other, {}));
    }
}

TEST(CredentialStore, DescribesALoginWithoutItsPassword)
{
    EXPECT_EQ("user:*****", DescribeCredentials(*login("user", "secret")));
    EXPECT_EQ(":*****", DescribeCredentials(CUserCredentials()));
}

} // namespace
