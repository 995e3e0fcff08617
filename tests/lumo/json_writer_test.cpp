#include "lumo/json_writer.h"

#include "support/comma_locale.h"

#include <climits>
#include <cmath>
#include <numeric>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

using lumo::json_writer;
using lumo::json_writer_array;

namespace {

constexpr const char* no_name = nullptr;

template <class Writer = json_writer, class Members>
std::string finished(bool compact, Members members, const char* name = nullptr)
{
    Writer writer(name, compact);
    members(writer);
    writer.finish();
    return writer.text;
}

// The text of the one value that `value` gives as an array element.
template <class Value>
std::string as_element(Value value)
{
    const std::string text = finished<json_writer_array>(true, [&](auto& w) { w.element(no_name, value); });
    return text.substr(2, text.size() - 4);
}

void a_and_b(json_writer& w)
{
    w.element("a", 1);
    w.element("b", "x");
}

void one_and_two(json_writer_array& w)
{
    w.element(no_name, 1);
    w.element(no_name, 2);
}

void nothing(json_writer&) {}

} // namespace

// A named object is wrapped in another; a named array begins with a comma.
TEST(JsonWriter, SeparatesWithSpacesOrIndentedLines)
{
    EXPECT_EQ(finished(true, a_and_b), R"({ "a": 1, "b": "x" })");
    EXPECT_EQ(finished(false, a_and_b), "{\r\n \"a\": 1,\r\n \"b\": \"x\"\r\n}");
    EXPECT_EQ(finished(false, nothing), "{\r\n}");
    EXPECT_EQ(finished<json_writer_array>(true, [](auto& w) { w.finish(); }), "[ ]"); // once
    EXPECT_EQ(finished<json_writer_array>(false, one_and_two), "[\r\n 1,\r\n 2 ]");
    EXPECT_EQ(finished(false, a_and_b, "n"), "{\r\n\"n\": {\r\n \"a\": 1,\r\n \"b\": \"x\"\r\n}}");
    EXPECT_EQ(finished(true, nothing, "q\""), R"({ "q\"": { }})");
    EXPECT_EQ(finished<json_writer_array>(true, one_and_two, "n"), R"( "n": [, 1, 2 ])");
    EXPECT_EQ(finished<json_writer_array>(false, one_and_two, "n"), "\r\n\"n\": [,\r\n 1,\r\n 2 ]");
}

TEST(JsonWriter, EscapesFiveBytesAndNoOther)
{
    std::string all(255, '\0');
    std::iota(all.begin(), all.end(), '\1');
    std::string escaped = all;
    for (const auto& [byte, shown] :
         {std::pair{'\\', "\\\\"}, {'"', "\\\""}, {'\n', "\\n"}, {'\r', "\\r"}, {'\t', "\\t"}})
        escaped.replace(escaped.find(byte), 1, shown);
    EXPECT_EQ(as_element(all.c_str()), '"' + escaped + '"');
    EXPECT_EQ(finished(true, [](auto& w) { w.element("a\tb", true); }), R"({ "a\tb": true })");
}

TEST(JsonWriter, WritesEveryKindOfValue)
{
    EXPECT_EQ(as_element(true), "true");
    EXPECT_EQ(as_element(false), "false");
    EXPECT_EQ(as_element<const char*>(nullptr), "null");
    EXPECT_EQ(as_element(INT_MIN), "-2147483648");
    EXPECT_EQ(as_element(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(as_element(ULLONG_MAX), "18446744073709551615");
    EXPECT_EQ(as_element(std::string_view("\0a\"\0", 4)), R"("\u0000a\"\u0000")");
    EXPECT_EQ(as_element(-HUGE_VAL), "-inf");
    const lumo::json_writer child(nullptr, true);
    EXPECT_EQ(finished(true, [&](auto& w) { w.element("o", &child); }), R"({ "o": { })"); // as it stands
    EXPECT_EQ(finished(true, [](auto& w) { w.element("o", static_cast<json_writer*>(nullptr)); }), R"({ "o":  })");
}

TEST(JsonWriter, TakesMembersUncheckedOnceFinished)
{
    json_writer writer(nullptr, true);
    writer.finish();
    writer.finish();
    writer.element("late", 1);
    EXPECT_EQ(writer.text, R"({ } "late": 1)");
}

TEST(JsonWriter, WritesATextThatReadsLikeAString)
{
    json_writer writer(nullptr, false);
    writer._write_name("a\"");
    writer._write_encode("x\n");
    writer._break();
    writer._write_name(nullptr);
    const std::string text = writer.text;
    EXPECT_EQ(text, "{\r\n \"a\\\"\": x\\n\r\n,\r\n ");
    EXPECT_STREQ(writer.text.c_str(), text.c_str());
    EXPECT_TRUE(writer.text == text);
    EXPECT_FALSE(writer.text != text);
    EXPECT_EQ(writer.text.find("x"), 11u);
}

TEST(JsonWriter, DoesNotCareForTheHostsLocale)
{
    const CommaLocale german;
    EXPECT_EQ(as_element(1234.5678e-12), "1.23457e-09");
    EXPECT_EQ(as_element(1234567), "1234567");
}

TEST(EscapedCopy, NeverReadsIntoTheNextPage)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* memory = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    char* end = static_cast<char*>(memory) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    for (std::size_t length = 0; length < 40; ++length) {
        char* text = end - 1 - length;
        std::fill_n(text, length, length % 2 ? 'x' : '\n');
        EXPECT_EQ(as_element<const char*>(text).size(), 2 + length * (length % 2 ? 1 : 2));
    }
    munmap(memory, 2 * page);
}
