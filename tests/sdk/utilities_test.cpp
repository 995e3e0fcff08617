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

// Each function has a form for wide texts; the rules stand once for both.
TEST(Trim, RemovesTheGivenCharactersOnly)
{
    text all = "   ", left = " x ", right = " x ", both = "\r\n x \r\n", inner = "xax", none;
    EXPECT_EQ(&TrimLeft(left, " "), &left);
    EXPECT_EQ((tokens{TrimLeft(all, " "), left, TrimRight(right, " "), Trim(both, " \r\n"), Trim(inner, "x"),
                      Trim(none, "")}),
              (tokens{"", "x ", " x", "x", "a", ""}));
    std::wstring first = L"- x -", last = first, whole = first;
    EXPECT_EQ(TrimLeft(first, L"-") + TrimRight(last, L"-") + Trim(whole, L"-"), L" x -- x  x ");
}

TEST(StartsAndEndsWith, LookAtOnePlace)
{
    const text s = "abcbc";
    EXPECT_TRUE(StartsWith(s, "abc") && !StartsWith(s, "bc") && EndsWith(s, "bc") && !EndsWith(s, "abc"));
    EXPECT_TRUE(StartsWith(text(), "") && EndsWith(text(), "") && !StartsWith("bc", s) && !EndsWith("bc", s));
    const std::wstring w = L"abcbc";
    EXPECT_TRUE(StartsWith(w, L"abc") && !StartsWith(w, L"bc") && EndsWith(w, L"bc") && !EndsWith(w, L"abc"));
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
    text out;
    const std::time_t before = std::time(nullptr);
    ASSERT_TRUE(GetCurrentDateTime(out, "%Y-%m-%d %H:%M:%S"));
    const std::time_t after = std::time(nullptr);
    std::tm parsed = {};
    ASSERT_NE(strptime(out.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
    EXPECT_TRUE(before <= timegm(&parsed) && timegm(&parsed) <= after) << out;
    EXPECT_TRUE(GetCurrentDateTime(out, "123456789012345678901"));
    EXPECT_FALSE(GetCurrentDateTime(out, "1234567890123456789012"));
    EXPECT_FALSE(GetCurrentDateTime(out, ""));
    EXPECT_EQ(out, "123456789012345678901");
}

TEST(GetCurrentTimeInMillis, RunsForward)
{
    const double start = GetCurrentTimeInMillis();
    for (double last = start, now = start; now < start + 3; last = now)
        ASSERT_GE(now = GetCurrentTimeInMillis(), last); // a clock that stands still meets the test's time limit
}

TEST(GetMacAddresses, AreNotCollected)
{
    tokens out = {"kept"};
    EXPECT_FALSE(GetMACAddresses(out));
    EXPECT_EQ(out, tokens{"kept"});
    EXPECT_FALSE(CheckFileExists("/proc/self")); // no regular file, and without more of a test: tova's answer
}
