#include "lumo/tova/text.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

TEST(BoundedCopy, TakesATextThatFitsExactly)
{
    char four[4];
    tova_strncpy(four, 4, "abcdef", 3);
    EXPECT_STREQ("abc", four);
    tova_strncpy(four, 4, "a", 100);
    tova_strcat(four, 4, "bc");
    EXPECT_STREQ("abc", four);
    wchar_t wide[3];
    tova_wcscpy(wide, 3, L"\u00e9z");
    EXPECT_STREQ(L"\u00e9z", wide);
    char path[8]; // always with a separator, in place too
    tova_strpath(path, sizeof path, "a/", "b");
    tova_strpath(path, sizeof path, path, "cc");
    EXPECT_STREQ("a//b/cc", path);
}

TEST(Compare, LooksPastTheCaseOfLettersAToZOnly)
{
    static const struct
    {
        const char *a, *b;
        int sign;
    } cases[] = {{"Abc", "aBC", 0}, {"b", "A", 1},    {"ab", "abc", -1},
                 {"[", "{", -1},    {"\xFF", "a", 1}, {"\xC3\x89", "\xC3\xA9", -1}};
    for (const auto& c : cases) {
        const int32_t got = tova_stricmp(c.a, c.b);
        EXPECT_EQ(c.sign, (got > 0) - (got < 0)) << c.a << " " << c.b;
        EXPECT_EQ(got, tova_strnicmp(c.a, c.b, 100)) << c.a << " " << c.b;
    }
    EXPECT_EQ(0, tova_strnicmp("HTTPS://x", "https://y", 8));
}

TEST(Format, GivesTheWholeTextOrNone)
{
    char buffer[16];
    EXPECT_EQ(0, tova_sprintf(buffer, 5, "%s", "12345"));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(5, tova_sprintf(buffer, 6, "%s", "12345"));
    EXPECT_STREQ("12345", buffer);
    EXPECT_EQ(0, tova_sprintf(buffer, -1, "x"));
    EXPECT_STREQ("12345", buffer);
    EXPECT_EQ(0, tova_sprintf(buffer, 16, "%lc", static_cast<wint_t>(0x7FFFFFFF))); // cannot be formatted
    EXPECT_STREQ("", buffer);
}

std::wstring wide_of(const std::string& text)
{
    const int32_t size = tova_utf8_to_wide(nullptr, 0, text.c_str());
    std::wstring wide(static_cast<size_t>(size) + 1, L'#');
    EXPECT_EQ(size, tova_utf8_to_wide(wide.data(), static_cast<unsigned>(wide.size()), text.c_str()));
    EXPECT_EQ(std::wstring(L"\0#", 2), wide.substr(wide.size() - 2));
    wide.resize(wide.size() - 2);
    return wide;
}

// One sequence each, with what it is alone.
const struct
{
    const char* text;
    std::vector<uint32_t> points;
} sequences[] = {
    {"a", {'a'}},
    {"\xC2\x80", {0x80}},
    {"\xC3\xA9", {0xE9}},
    {"\xDF\xBF", {0x7FF}},
    {"\xE0\xA0\x80", {0x800}},
    {"\xE2\x82\xAC", {0x20AC}},
    // rare ones, and broken ones: overlong, surrogates, above the last code point, bytes that begin nothing, cut off
    {"\xEF\xBF\xBF", {0xFFFF}},
    {"\xF4\x8F\xBF\xBF", {0x10FFFF}},
    {"\xC1\xBF", {0xFFFD}},
    {"\xE0\x9F\xBF", {0xFFFD}},
    {"\xF0\x8F\xBF\xBF", {0xFFFD}},
    {"\xED\xA0\x80", {0xFFFD}},
    {"\xF4\x90\x80\x80", {0xFFFD}},
    {"\xFC\x84\x80\x80\x80\x80", {0xFFFD}},
    {"z\x80\xFE", {'z', 0xFFFD, 0xFFFD}},
    {"\xC3", {0xFFFD}},
    {"\xF0\x9F\x98", {0xFFFD}},
};

// A single sequence is so short that only the loop over sequences sees it; the long texts reach the loops over blocks.
TEST(Utf8, DecodesALongTextAsItDoesItsPieces)
{
    constexpr size_t common = 6;
    for (const auto& [text, points] : sequences)
        EXPECT_EQ(std::wstring(points.begin(), points.end()), wide_of(text)) << testing::PrintToString(text);
    std::mt19937 random(7);
    for (int round = 0; round < 20'000; ++round) {
        const size_t count = random() % 40, chosen = random() % 40;
        std::string text;
        std::wstring expected;
        for (size_t i = 0; i < count; ++i) {
            const auto& piece = sequences[random() % (i == chosen ? std::size(sequences) : common)];
            text += piece.text;
            expected.append(piece.points.begin(), piece.points.end());
        }
        ASSERT_EQ(expected, wide_of(text)) << testing::PrintToString(text);
        ASSERT_EQ(expected.size() + 1, tova_utf8_to_wide_length((text + "a").c_str())); // "a": so that none is cut
    }
}

TEST(WideText, GoesToUtf8AndBackForEveryCodePoint)
{
    std::wstring all;
    for (uint32_t point = 1; point <= 0x10FFFF; ++point)
        if (point < 0xD800 || point > 0xDFFF)
            all += static_cast<wchar_t>(point);
    const int32_t size = tova_wide_to_utf8(nullptr, 0, all.c_str());
    std::string text(static_cast<size_t>(size), '#');
    EXPECT_EQ(size, tova_wide_to_utf8(text.data(), static_cast<unsigned>(size), all.c_str()));
    text.pop_back();
    EXPECT_EQ(all, wide_of(text));
    const wchar_t odd[] = {0xD800, 'x', 0x110000, static_cast<wchar_t>(0xFFFFFFFF), 0};
    EXPECT_EQ(11, tova_wide_to_utf8(text.data(), 16, odd));
    EXPECT_STREQ("\xEF\xBF\xBDx\xEF\xBF\xBD\xEF\xBF\xBD", text.c_str());
}

TEST(GrowingString, TakesItsOwnTextInPlace)
{
    tova_string s;
    tova_string_init(&s);
    const auto text = [&] { return std::string(tova_string_get(&s), tova_string_length(&s)); };
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        tova_string_append(&s, std::to_string(i).c_str());
        expected += std::to_string(i);
        ASSERT_EQ(expected, text());
    }
    tova_string_set(&s, "ab");
    tova_string_append(&s, tova_string_get(&s)); // its own text, in place
    tova_string_append(&s, nullptr);
    tova_string_set(&s, tova_string_get(&s) + 1);
    EXPECT_EQ("bab", text());
    tova_string_clear(&s);
    tova_string_append(&s, "again");
    for (int times = 0; times < 2; ++times)
        tova_string_append(&s, tova_string_get(&s)); // its own text, moved by the growth
    tova_string_reserve(&s, 256);
    EXPECT_EQ("againagainagainagain", text());
    tova_string_set(&s, nullptr);
    EXPECT_EQ("", text());
    tova_string_clear(&s);
}

} // namespace
