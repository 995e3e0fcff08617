#include "lumo/tova/text.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

TEST(BoundedCopy, TakesATextThatFitsExactly)
{
    char four[4];
    tova_strcpy(four, 4, "abc");
    EXPECT_STREQ("abc", four);
    tova_strcpy(four, 1, "");
    EXPECT_STREQ("", four);
    tova_strncpy(four, 4, "abcdef", 3);
    EXPECT_STREQ("abc", four);
    tova_strncpy(four, 4, "a", 100);
    EXPECT_STREQ("a", four);
    tova_strcat(four, 4, "bc");
    EXPECT_STREQ("abc", four);
    tova_strcat(four, 4, "");
    EXPECT_STREQ("abc", four);
    wchar_t wide[3];
    tova_wcscpy(wide, 3, L"\u00e9z");
    EXPECT_STREQ(L"\u00e9z", wide);
    char path[8]; // always with a separator, in place too
    tova_strpath(path, sizeof path, "a/", "b");
    EXPECT_STREQ("a//b", path);
    tova_strpath(path, sizeof path, path, "cc");
    EXPECT_STREQ("a//b/cc", path);
}

TEST(Compare, LooksPastTheCaseOfLettersAToZOnly)
{
    static const struct
    {
        const char *a, *b;
        int sign;
    } cases[] = {{"", "", 0},       {"Abc", "aBC", 0}, {"abc", "abd", -1},           {"b", "A", 1},
                 {"ab", "abc", -1}, {"[", "{", -1},    {"\xC3\x89", "\xC3\xA9", -1}, {"\xFF", "a", 1}};
    for (const auto& c : cases) {
        const int32_t got = tova_stricmp(c.a, c.b);
        EXPECT_EQ(c.sign, (got > 0) - (got < 0)) << c.a << " " << c.b;
        EXPECT_EQ(got, tova_strnicmp(c.a, c.b, 100)) << c.a << " " << c.b;
    }
    EXPECT_EQ(0, tova_strnicmp("HTTPS://x", "https://y", 8));
    EXPECT_EQ(0, tova_strnicmp("a", "b", 0));
}

TEST(Format, GivesTheWholeTextOrNone)
{
    char buffer[16];
    EXPECT_EQ(0, tova_sprintf(buffer, 5, "%s", "12345"));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(5, tova_sprintf(buffer, 6, "%s", "12345"));
    EXPECT_STREQ("12345", buffer);
    for (int32_t none : {0, -1})
        EXPECT_EQ(0, tova_sprintf(buffer, none, "x"));
    EXPECT_STREQ("12345", buffer);
    EXPECT_EQ(0, tova_sprintf(buffer, 16, "%lc", static_cast<wint_t>(0x7FFFFFFF))); // cannot be formatted
    EXPECT_STREQ("", buffer);
}

std::wstring wide_of(const std::string& text)
{
    std::wstring wide(static_cast<size_t>(tova_utf8_to_wide(nullptr, 0, text.c_str())) + 1, L'#');
    const int32_t written = tova_utf8_to_wide(wide.data(), static_cast<unsigned>(wide.size()), text.c_str());
    EXPECT_EQ(wide.size() - 1, static_cast<size_t>(written));
    EXPECT_EQ(L'\0', wide[static_cast<size_t>(written) - 1]);
    EXPECT_EQ(L'#', wide[static_cast<size_t>(written)]);
    wide.resize(static_cast<size_t>(written) - 1);
    return wide;
}

TEST(Utf8, DecodesAndGivesOneReplacementForEachBrokenSequence)
{
    static const struct
    {
        const char* text;
        std::vector<uint32_t> points;
    } cases[] = {
        {"", {}},
        {"a\xC3\xA9", {'a', 0xE9}},
        {"\x7F\xC2\x80\xDF\xBF", {0x7F, 0x80, 0x7FF}},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", {0x800, 0xD7FF, 0xE000, 0xFFFF}},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", {0x10000, 0x10FFFF}},
        // cut off by the end
        {"a\xC3", {'a', 0xFFFD}},
        {"\xE2\x82", {0xFFFD}},
        {"\xF0\x9F\x98", {0xFFFD}},
        {"\xFD\xBF\xBF", {0xFFFD}},
        // cut off by another character, which counts
        {"\xE2\x82zz", {0xFFFD, 'z', 'z'}},
        {"\xC3\xC3\xA9z", {0xFFFD, 0xE9, 'z'}},
        {"\xF0\x9F\xE2\x82\xAC", {0xFFFD, 0x20AC}},
        // overlong, surrogates, above the last code point: the whole sequence is one
        {"\xC0\x80x", {0xFFFD, 'x'}},
        {"\xC1\xBF-", {0xFFFD, '-'}},
        {"\xE0\x9F\xBF-", {0xFFFD, '-'}},
        {"\xF0\x8F\xBF\xBF-", {0xFFFD, '-'}},
        {"\xED\xA0\x80\xED\xBF\xBF", {0xFFFD, 0xFFFD}},
        {"\xF4\x90\x80\x80-", {0xFFFD, '-'}},
        {"\xF8\x88\x80\x80\x80-", {0xFFFD, '-'}},
        {"\xFC\x84\x80\x80\x80\x80-", {0xFFFD, '-'}},
        // bytes that begin nothing, one each
        {"\x80\xBFx", {0xFFFD, 0xFFFD, 'x'}},
        {"\xFE\xFF\xFEx", {0xFFFD, 0xFFFD, 0xFFFD, 'x'}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(std::wstring(c.points.begin(), c.points.end()), wide_of(c.text)) << testing::PrintToString(c.text);
}

TEST(Utf8, IsTheSameAtEveryLengthAndPosition)
{
    static const struct
    {
        const char* text;
        wchar_t point;
    } odd[] = {{"\xC3\xA9", 0xE9}, {"\xE2\x82\xAC", 0x20AC}, {"\xF0\x9F\x98\x80", 0x1F600}, {"\xFE", 0xFFFD}};
    for (size_t length = 0; length < 40; ++length)
        for (size_t position = 0; position <= length; ++position)
            for (const auto& o : odd) {
                const std::string before(position, 'x'), after(length - position, 'y');
                ASSERT_EQ(std::wstring(position, 'x') + o.point + std::wstring(length - position, 'y'),
                          wide_of(before + o.text + after));
            }
}

// Alone a piece is too short for anything but the way from one byte to the next.
TEST(Utf8, DecodesALongTextAsItDoesItsPieces)
{
    static const char* const whole[] = {"a", "Zo", "\xC2\x80", "\xC3\xA9", "\xDF\xBF", "\xE0\xA0\x80", "\xE2\x82\xAC"};
    static const char* const odd[] = {"\xED\x9F\xBF", "\xEF\xBF\xBF", "\xF0\x9F\x98\x80", "\xC0\x80",
                                      "\xC1\xBF",     "\xE0\x9F\xBF", "\xED\xA0\x80",     "\xF5\x80\x80\x80",
                                      "z\x80\xBF",    "\xC3",         "\xE2\x82"};
    std::mt19937 random(7);
    for (int round = 0; round < 100'000; ++round) {
        const size_t count = random() % 40, chosen = random() % 40;
        std::string text;
        std::wstring expected;
        for (size_t i = 0; i < count; ++i) {
            const char* piece = i == chosen ? odd[random() % std::size(odd)] : whole[random() % std::size(whole)];
            text += piece;
            expected += wide_of(piece);
        }
        ASSERT_EQ(expected, wide_of(text)) << testing::PrintToString(text);
    }
}

TEST(Utf8, CountsWhatItConvertsWhateverTheBytes)
{
    std::mt19937 random(20100617);
    static const unsigned char likely[] = {0x80, 0xBF, 0xC0, 0xC3, 0xE0, 0xE2, 0xED, 0xF0, 0xF4, 0xF8, 0xFC, 0xFF, 'a'};
    for (int round = 0; round < 20'000; ++round) {
        std::string text(random() % 24, ' ');
        for (char& c : text)
            c = static_cast<char>(random() % 3 ? likely[random() % sizeof likely] : random() % 255 + 1);
        const std::wstring wide = wide_of(text);
        EXPECT_EQ(wide.size() + 1, tova_utf8_to_wide_length((text + "a").c_str())); // "a": so that none is cut
        EXPECT_EQ(wide, wide_of(text + "a").substr(0, wide.size()));
    }
}

TEST(WideText, GoesToUtf8AndBackForEveryCodePointAndNothingElse)
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
    EXPECT_EQ(all.size(), tova_utf8_to_wide_length(text.c_str()));
    const wchar_t odd[] = {0xD800, 'x', 0x110000, static_cast<wchar_t>(0xFFFFFFFF), 0};
    EXPECT_EQ(11, tova_wide_to_utf8(text.data(), 16, odd));
    EXPECT_STREQ("\xEF\xBF\xBDx\xEF\xBF\xBD\xEF\xBF\xBD", text.c_str());
    EXPECT_EQ(1, tova_wide_to_utf8(text.data(), 2, L""));
}

TEST(GrowingString, SetsAppendsAndClears)
{
    tova_string s;
    tova_string_init(&s);
    const auto text = [&] { return std::string(tova_string_get(&s), tova_string_length(&s)); };
    EXPECT_EQ("", text());
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        tova_string_append(&s, std::to_string(i).c_str());
        expected += std::to_string(i);
        ASSERT_EQ(expected, text());
    }
    tova_string_set(&s, "ab");
    tova_string_append(&s, tova_string_get(&s)); // its own text, in place
    tova_string_append(&s, nullptr);
    EXPECT_EQ("abab", text());
    tova_string_set(&s, tova_string_get(&s) + 1);
    EXPECT_EQ("bab", text());
    tova_string_clear(&s);
    EXPECT_EQ("", text());
    tova_string_append(&s, "again");
    for (int times = 0; times < 2; ++times)
        tova_string_append(&s, tova_string_get(&s)); // its own text, moved by the growth
    tova_string_reserve(&s, 256);
    EXPECT_EQ("againagainagainagain", text());
    tova_string_set(&s, nullptr);
    EXPECT_EQ("", text());
    tova_string_clear(&s);
    tova_string_clear(&s);
}

} // namespace
