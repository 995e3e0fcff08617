#include "AnalyticsSDK/Utilities.h"

#include "lumo/dir.h"
#include "support/zone.h"

#include <ctime>
#include <gtest/gtest.h>

using namespace AnalyticsSDK;

namespace {

std::wstring wide(const std::string& s)
{
    return {s.begin(), s.end()};
}

// One rule, checked in both forms of a function.
#define EXPECT_TRIMMED(function, s, chars, expected)                                                                   \
    do {                                                                                                               \
        std::string narrow_text = s;                                                                                   \
        std::wstring wide_text = wide(s);                                                                              \
        EXPECT_EQ(&function(narrow_text, chars), &narrow_text);                                                        \
        EXPECT_EQ(narrow_text, expected);                                                                              \
        EXPECT_EQ(function(wide_text, wide(chars)), wide(expected));                                                   \
    } while (false)

} // namespace

TEST(Trim, RemovesTheGivenCharactersOnly)
{
    EXPECT_TRIMMED(TrimLeft, "   ", " ", "");
    EXPECT_TRIMMED(TrimLeft, " x ", " ", "x ");
    EXPECT_TRIMMED(TrimRight, " x ", " ", " x");
    EXPECT_TRIMMED(Trim, "\r\n x \r\n", " \r\n", "x");
    EXPECT_TRIMMED(Trim, "", "", "");
    EXPECT_TRIMMED(Trim, "xax", "x", "a");
}

TEST(StartsAndEndsWith, LookAtOnePlace)
{
    static const struct
    {
        const char *s, *part;
        bool starts, ends;
    } cases[] = {
        {"abcabc", "bc", false, true},  {"abc", "", true, true},     {"", "", true, true},
        {"abcbc", "bc", false, true},   {"bc", "abc", false, false}, {"abc", "abc", true, true},
        {"abcabd", "abc", true, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(StartsWith(std::string(c.s), c.part), c.starts) << c.s;
        EXPECT_EQ(StartsWith(wide(c.s), wide(c.part)), c.starts) << c.s;
        EXPECT_EQ(EndsWith(std::string(c.s), c.part), c.ends) << c.s;
        EXPECT_EQ(EndsWith(wide(c.s), wide(c.part)), c.ends) << c.s;
    }
}

TEST(Tokenize, AppendsTheStretchesBetweenDelimiters)
{
    using tokens = std::vector<std::string>;
    static const struct
    {
        const char *s, *delimiters;
        tokens expected;
    } cases[] = {
        {",,a,,b,", ",", {"a", "b"}}, {"a; b;c", "; ", {"a", "b", "c"}}, {"", ",", {}}, {",,", ",", {}},
        {"ab", "", {"ab"}},
    };
    for (const auto& c : cases) {
        tokens found = {"kept"}, expected = {"kept"};
        expected.insert(expected.end(), c.expected.begin(), c.expected.end());
        Tokenize(c.s, found, c.delimiters);
        EXPECT_EQ(found, expected);
        std::vector<std::wstring> wide_found;
        Tokenize(wide(c.s), wide_found, wide(c.delimiters));
        EXPECT_EQ(wide_found.size(), c.expected.size());
    }
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

TEST(GetAbsolutePath, StaysInTheProgramsDirectory)
{
    const std::string directory = lumo::dir::process();
    static const struct
    {
        const char *relative, *appended;
    } cases[] = {{"cacert.pem", "/cacert.pem"}, {"/abs", "//abs"}, {"", ""}, {nullptr, ""}};
    for (const auto& c : cases) {
        std::string out = "old";
        EXPECT_TRUE(GetAbsolutePath(c.relative, out));
        EXPECT_EQ(out, directory + c.appended);
    }
}

TEST(GetHostFromUrl, NeedsAScheme)
{
    static const struct
    {
        const char *url, *host;
        bool found;
    } cases[] = {{nullptr, "old", false},
                 {"https://10.1.2.3:8443/p", "10.1.2.3", true},
                 {"10.1.2.3", "", false},
                 {"", "", false}};
    for (const auto& c : cases) {
        std::string host = "old";
        EXPECT_EQ(GetHostFromUrl(c.url, host), c.found);
        EXPECT_EQ(host, c.host);
    }
}

TEST(GetCurrentDateTime, GivesUtcInAtMost21Characters)
{
    const support::Zone elsewhere("XYZ+11");
    std::string out, epoch;
    const std::time_t before = std::time(nullptr);
    ASSERT_TRUE(GetCurrentDateTime(out, "%Y-%m-%d %H:%M:%S"));
    const std::time_t after = std::time(nullptr);
    ASSERT_EQ(out.size(), 19u);
    std::tm parsed = {};
    ASSERT_NE(strptime(out.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
    EXPECT_GE(timegm(&parsed), before);
    EXPECT_LE(timegm(&parsed), after);

    EXPECT_TRUE(GetCurrentDateTime(out, "123456789012345678901"));
    EXPECT_EQ(out, "123456789012345678901");
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

TEST(CheckFileExists, WantsARegularFile)
{
    EXPECT_TRUE(CheckFileExists("/proc/self/exe"));
    EXPECT_FALSE(CheckFileExists("/proc/self/none"));
    EXPECT_FALSE(CheckFileExists("/proc/self"));
}

TEST(GetMacAddresses, AreNotCollected)
{
    std::vector<std::string> out = {"kept"};
    EXPECT_FALSE(GetMACAddresses(out));
    EXPECT_EQ(out, std::vector<std::string>{"kept"});
}
