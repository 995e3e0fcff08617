// Hashes, identifiers, reachability.

// A generator without entropy can only be made with the calls that OpenSSL 3 calls old.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "AnalyticsSDK/Identity.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstring>
#include <regex>
#include <set>

#include "made_up_facts.h"
#include "support/death.h"

using namespace AnalyticsSDK;

namespace {

struct Hash
{
    explicit Hash(const char* text) { made = GenerateHash(text, record, length); }

    scoped_array<unsigned char> record;
    long length = 0;
    bool made;
};

} // namespace

TEST(Identity, AHashIsItsSaltThenTheDerivedKey)
{
    for (const char* text :
         {"", "a text of \xC3\xBCsual length, with more bytes than the block of the digest has: 64 of them"}) {
        const Hash hash(text);
        ASSERT_TRUE(hash.made);
        ASSERT_EQ(hash.length, 56);
        unsigned char key[48];
        ASSERT_EQ(PKCS5_PBKDF2_HMAC(text, static_cast<int>(std::strlen(text)), hash.record.Get(), 8, 1000, EVP_sha1(),
                                    48, key),
                  1);
        EXPECT_EQ(std::memcmp(key, hash.record.Get() + 8, 48), 0);
        EXPECT_TRUE(TestHash(text, hash.record.Get(), 56));
    }
}

TEST(Identity, EveryByteOfARecordCounts)
{
    Hash hash("text");
    const std::string first(reinterpret_cast<char*>(hash.record.Get()), 56);
    const auto accepted = [](const std::string& record) {
        return TestHash("text", reinterpret_cast<const unsigned char*>(record.data()), 56);
    };
    for (std::size_t at : {0, 7, 8, 55}) {
        std::string changed = first;
        changed[at] ^= 1;
        EXPECT_FALSE(accepted(changed)) << at;
    }
    for (long length : {0, 55, 57, -1})
        EXPECT_FALSE(TestHash("text", nullptr, length)) << length; // decided without a look at the record
    ASSERT_TRUE(GenerateHash("text", hash.record, hash.length));   // the old record goes
    const std::string second(reinterpret_cast<char*>(hash.record.Get()), 56);
    EXPECT_NE(first.substr(0, 8), second.substr(0, 8)); // another salt
    EXPECT_TRUE(accepted(first));
    EXPECT_TRUE(accepted(second));
}

TEST(IdentityDeathTest, WithoutARandomSaltTheProcessAborts)
{
    static const auto draw_nothing = [](unsigned char*, int) { return 0; };
    static const RAND_METHOD exhausted = {nullptr, draw_nothing, nullptr, nullptr, draw_nothing, [] { return 1; }};
    EXPECT_ASSERTION(
        {
            RAND_set_rand_method(&exhausted);
            Hash("text");
        },
        "inc/lumo/crypt", "result == 1");
}

TEST(Identity, IdentifiersAreRandomLowerCaseVersion4)
{
    const std::regex form("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::string> seen;
    for (int count = 0; count < 1000; ++count)
        ASSERT_TRUE(std::regex_match(*seen.insert(GenerateUuid()).first, form));
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(Identity, OnlineMeansReachableWithoutMakingAConnectionFirst)
{
    MadeUpFacts facts;
    EXPECT_FALSE(IsOnline()); // the flags could not be read
    for (std::uint32_t flags = 0; flags < 32; ++flags) {
        facts.reachability = flags;
        EXPECT_EQ(IsOnline(), (flags & 2) && !(flags & 4)) << flags;
    }
}
