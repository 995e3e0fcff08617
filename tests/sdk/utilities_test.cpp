#include "AnalyticsSDK/Utilities.h"

#include "support/zone.h"

#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>

using namespace AnalyticsSDK;

namespace {

using text = std::string;
using tokens = std::vector<std::string>;

} // namespace

// Each function has a form for wide texts, too.
TEST(Trim, RemovesTheGivenCharactersOnly)
{
    static const struct
    {
        const char *given, *characters, *left, *right, *both;
    } cases[] = {{"   ", " ", "", "", ""},
                 {"\r\n x \r\n", " \r\n", "x \r\n", "\r\n x", "x"},
                 {"xax", "x", "ax", "xa", "a"},
                 {" x ", "", " x ", " x ", " x "}};
    for (const auto& c : cases) {
        text left = c.given, right = c.given, both = c.given;
        EXPECT_EQ(TrimLeft(left, c.characters), c.left);
        EXPECT_EQ(TrimRight(right, c.characters), c.right);
        EXPECT_EQ(Trim(both, c.characters), c.both);
    }
    std::wstring wide = L"- x -";
    EXPECT_EQ(Trim(wide, L"-"), L" x ");
}

TEST(StartsAndEndsWith, LookAtOnePlace)
{
    static const struct
    {
        const char *given, *part;
        bool starts, ends;
    } cases[] = {{"abcbc", "abc", true, false},
                 {"abcbc", "bc", false, true},
                 {"bc", "abcbc", false, false},
                 {"", "", true, true}};
    for (const auto& c : cases) {
        EXPECT_EQ(StartsWith(text(c.given), c.part), c.starts) << c.part;
        EXPECT_EQ(EndsWith(text(c.given), c.part), c.ends) << c.part;
    }
    EXPECT_TRUE(StartsWith(std::wstring(L"abc"), L"ab"));
    EXPECT_FALSE(EndsWith(std::wstring(L"abc"), L"ab"));
}

TEST(Tokenize, AppendsTheStretchesBetweenDelimiters)
{
    tokens found = {"kept"};
    Tokenize(text(",,a; b,"), found, ",; ");
    Tokenize(text(",,"), found, ",");
    Tokenize(text("c,d"), found, "");
    EXPECT_EQ(found, (tokens{"kept", "a", "b", "c,d"}));
    std::vector<std::wstring> wide_found = {L"kept"};
    Tokenize(std::wstring(L",,a; b,"), wide_found, L",; ");
    EXPECT_EQ(wide_found, (std::vector<std::wstring>{L"kept", L"a", L"b"}));
}

TEST(BytesToString, AppendsTwoDigitsPerByte)
{
    std::string out = "x";
    const unsigned char bytes[] = {0x00, 0xAB, 0x7F};
    BytesToString(bytes, 3, out);
    BytesToString(bytes, 0, out);
    BytesToString(bytes, -1, out);
    EXPECT_EQ(out, "x00ab7f");
}

TEST(GetAbsolutePath, PutsEverythingBehindTheProgramsDirectory)
{
    const text folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const auto& [relative, expected] : {std::pair{"cacert.pem", "/cacert.pem"},
                                             {"/abs", "//abs"},
                                             {"", ""},
                                             {static_cast<const char*>(nullptr), ""}}) {
        text out = "old";
        EXPECT_TRUE(GetAbsolutePath(relative, out));
        EXPECT_EQ(out, folder + expected);
    }
}

TEST(GetHostFromUrl, NeedsAScheme)
{
    text host = "old";
    EXPECT_FALSE(GetHostFromUrl(nullptr, host));
    EXPECT_EQ(host, "old");
    EXPECT_TRUE(GetHostFromUrl("https://10.1.2.3:8443/p", host));
    EXPECT_EQ(host, "10.1.2.3");
    EXPECT_FALSE(GetHostFromUrl("10.1.2.3", host));
    EXPECT_EQ(host, "");
}

TEST(GetCurrentDateTime, GivesUtcInAtMost21Characters)
{
    const support::Zone elsewhere("XYZ+11");
    text hour, out;
    do {
        ASSERT_TRUE(GetCurrentDateTime(hour, "%H"));
        out = std::to_string(std::time(nullptr) / 3600 % 24);
    } while (std::time(nullptr) % 3600 == 0);
    EXPECT_EQ(std::stoi(hour), std::stoi(out));
    EXPECT_TRUE(GetCurrentDateTime(out, "123456789012345678901"));
    EXPECT_FALSE(GetCurrentDateTime(out, "1234567890123456789012"));
    EXPECT_FALSE(GetCurrentDateTime(out, ""));
    EXPECT_EQ(out, "123456789012345678901");
}

TEST(GetMacAddresses, AreNotCollected)
{
    tokens out = {"kept"};
    EXPECT_FALSE(GetMACAddresses(out));
    EXPECT_EQ(out, tokens{"kept"});
    EXPECT_FALSE(CheckFileExists("/proc/self")); // no regular file, and without more of a test: tova's answer
}
