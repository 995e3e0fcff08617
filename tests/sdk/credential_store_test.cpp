#include "AnalyticsSDK/CredentialStore.h"

#include "Secret.h"

#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

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

// A password that stands nowhere in this program: byte by byte from a formula, which the search compares with.
constexpr std::size_t secret_size = 48;

char secret_byte(std::size_t at)
{
    return static_cast<char>('!' + (at * 37 + at * at * 11) % 90);
}

// How often the secret stands in this process's writable memory, freed memory included.
int traces_of_secret()
{
    int found = 0;
    std::ifstream maps("/proc/self/maps");
    int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::vector<char> block(1 << 20);
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t from = 0, to = 0;
        char mode[5] = "";
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " %4s", &from, &to, mode) != 3 || mode[1] != 'w')
            continue;
        // Sanitizers reserve terabytes of shadow, which hold no text.
        for (std::uintptr_t at = from; at < to && to - from < (1ull << 30); at += block.size() - secret_size) {
            const ssize_t got = pread(memory, block.data(), std::min(block.size(), to - at), static_cast<off_t>(at));
            for (ssize_t start = 0; start + static_cast<ssize_t>(secret_size) <= got; ++start) {
                std::size_t same = 0;
                while (same < secret_size && block[static_cast<std::size_t>(start) + same] == secret_byte(same))
                    ++same;
                found += same == secret_size;
            }
        }
    }
    close(memory);
    // The block itself may have caught what it searched for.
    std::fill(block.begin(), block.end(), '\0');
    return found;
}

std::string make_secret()
{
    std::string secret(secret_size, '\0');
    for (std::size_t at = 0; at < secret_size; ++at)
        secret[at] = secret_byte(at);
    return secret;
}

TEST(CredentialStore, LeavesNoPasswordInMemoryOnceItsRecordIsGone)
{
    const auto add = [](CCredentialStore& store) {
        scoped_ptr<CUserCredentials> record(new CUserCredentials);
        record->strPassword = make_secret(); // moved in: no other copy
        store.AddCredentials("proxy", record);
    };
    CCredentialStore store;
    add(store);
    EXPECT_GE(traces_of_secret(), 1) << "the search must find what is there";
    store.RemoveCredentials("proxy");
    EXPECT_EQ(0, traces_of_secret()) << "removed";
    add(store);
    auto other = login("user", "other");
    store.AddCredentials("proxy", other);
    EXPECT_EQ(0, traces_of_secret()) << "replaced";
    {
        CCredentialStore short_lived;
        add(short_lived);
        CUserCredentials copy;
        short_lived.CopyUserCredentials("proxy", copy);
        short_lived.CopyUserCredentials("proxy", copy);
    }
    EXPECT_EQ(0, traces_of_secret()) << "store and copies destroyed";
}

} // namespace
