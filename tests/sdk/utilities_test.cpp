#include "AnalyticsSDK/Utilities.h"

#include "lumo/dir.h"
#include "support/zone.h"

#include <algorithm>
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
    const auto tokens_of = [](const char* s, const char* delimiters) {
        tokens found = {"kept"};
        Tokenize(s, found, delimiters);
        std::vector<std::wstring> wide_found = {L"kept"};
        Tokenize(wide(s), wide_found, wide(delimiters));
        EXPECT_TRUE(std::equal(found.begin(), found.end(), wide_found.begin(), wide_found.end(),
                               [](const std::string& token, const std::wstring& w) { return wide(token) == w; }));
        return found;
    };
    EXPECT_EQ(tokens_of(",,a,,b,", ","), (tokens{"kept", "a", "b"}));
    EXPECT_EQ(tokens_of("a; b;c", "; "), (tokens{"kept", "a", "b", "c"}));
    EXPECT_EQ(tokens_of("", ","), tokens{"kept"});
    EXPECT_EQ(tokens_of(",,", ","), tokens{"kept"});
    EXPECT_EQ(tokens_of("ab", ""), (tokens{"kept", "ab"}));
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
    const auto path_of = [](const char* relative) {
        std::string out = "old";
        EXPECT_TRUE(GetAbsolutePath(relative, out));
        return out;
    };
    EXPECT_EQ(path_of("cacert.pem"), lumo::dir::process() + "/cacert.pem");
    EXPECT_EQ(path_of("/abs"), lumo::dir::process() + "//abs");
    EXPECT_EQ(path_of(""), lumo::dir::process());
    EXPECT_EQ(path_of(nullptr), lumo::dir::process());
}

TEST(GetHostFromUrl, NeedsAScheme)
{
    const auto answer = [](const char* url) {
        std::string host = "old";
        const bool found = GetHostFromUrl(url, host);
        return (found ? "found " : "none ") + host;
    };
    EXPECT_EQ(answer(nullptr), "none old");
    EXPECT_EQ(answer("https://10.1.2.3:8443/p"), "found 10.1.2.3");
    EXPECT_EQ(answer("10.1.2.3"), "none ");
    EXPECT_EQ(answer(""), "none ");
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
