#include "lumo/json_writer.h"

#include "lumo/escape.h"
#include "support/comma_locale.h"

#include <climits>
#include <cmath>
#include <memory>
#include <random>
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
    return std::string(writer.text());
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

TEST(JsonWriter, SeparatesWithSpacesOrWithIndentedLines)
{
    EXPECT_EQ(finished(true, a_and_b), R"({ "a": 1, "b": "x" })");
    EXPECT_EQ(finished(false, a_and_b), "{\r\n \"a\": 1,\r\n \"b\": \"x\"\r\n}");
    EXPECT_EQ(finished(true, nothing), "{ }");
    EXPECT_EQ(finished(false, nothing), "{\r\n}");
    EXPECT_EQ(finished<json_writer_array>(true, one_and_two), "[ 1, 2 ]");
    EXPECT_EQ(finished<json_writer_array>(true, nothing), "[ ]");
    EXPECT_EQ(finished<json_writer_array>(false, one_and_two), "[\r\n 1,\r\n 2 ]");
}

// A named object is wrapped in another; a named array begins with a comma.
TEST(JsonWriter, WritesTheNameOfTheWholeInItsOwnWay)
{
    const auto a = [](json_writer& w) { w.element("a", 1); };
    EXPECT_EQ(finished(true, a, "n"), R"({ "n": { "a": 1 }})");
    EXPECT_EQ(finished(false, a, "n"), "{\r\n\"n\": {\r\n \"a\": 1\r\n}}");
    EXPECT_EQ(finished(true, nothing, "q\""), R"({ "q\"": { }})");
    EXPECT_EQ(finished<json_writer_array>(true, one_and_two, "n"), R"( "n": [, 1, 2 ])");
    EXPECT_EQ(finished<json_writer_array>(false, one_and_two, "n"), "\r\n\"n\": [,\r\n 1,\r\n 2 ]");
}

TEST(JsonWriter, EscapesFiveBytesAndNoOther)
{
    EXPECT_EQ(as_element(""), "\"\"");
    EXPECT_EQ(as_element("\"\\\n\r\t"), R"("\"\\\n\r\t")");
    EXPECT_EQ(as_element<const char*>(nullptr), "null");
    for (int byte = 1; byte < 256; ++byte) {
        const char text[] = {'a', static_cast<char>(byte), 'z', '\0'};
        const std::string escaped = std::string("\"\\\n\r\t").find(text[1]) != std::string::npos ? "\\" : "";
        const char shown = byte == '\n' ? 'n' : byte == '\r' ? 'r' : byte == '\t' ? 't' : text[1];
        EXPECT_EQ(as_element(text), "\"a" + escaped + shown + "z\"") << byte;
    }
    EXPECT_EQ(finished(true, [](auto& w) { w.element("a\tb", true); }), R"({ "a\tb": true })");
}

TEST(JsonWriter, WritesEveryKindOfValue)
{
    EXPECT_EQ(as_element(true) + as_element(false), "truefalse");
    EXPECT_EQ(as_element(255) + as_element(INT_MIN), "255-2147483648");
    EXPECT_EQ(as_element(0LL) + as_element(-7LL) + as_element(1LL << 40), "0-71099511627776");
    EXPECT_EQ(as_element(LLONG_MIN) + as_element(LLONG_MAX), "-92233720368547758089223372036854775807");
    EXPECT_EQ(as_element(1234567.0) + as_element(-HUGE_VAL), "1.23457e+06-inf");
}

TEST(JsonWriter, CopiesAChildAsItStands)
{
    json_writer child(nullptr, true);
    child.element("k", true);
    child.finish();
    EXPECT_EQ(finished(true, [&](auto& w) { w.element("o", &child); }), R"({ "o": { "k": true } })");
    EXPECT_EQ(finished(true, [](auto& w) { w.element("o", static_cast<json_writer*>(nullptr)); }), R"({ "o":  })");
    EXPECT_EQ(finished<json_writer_array>(true, [&](auto& w) { w.element(no_name, &child); }), R"([ { "k": true } ])");
}

TEST(JsonWriter, FinishesOnceAndTakesMembersAfterwardsUnchecked)
{
    json_writer writer(nullptr, true);
    writer.finish();
    writer.finish();
    EXPECT_EQ(writer.text(), "{ }");
    writer.element("late", 1);
    EXPECT_EQ(writer.text(), R"({ } "late": 1)");

    json_writer_array array(nullptr, true);
    array.finish();
    array.finish();
    EXPECT_EQ(array.text(), "[ ]");
}

TEST(JsonWriter, DoesNotCareForTheHostsLocale)
{
    const CommaLocale german;
    EXPECT_EQ(as_element(0.5) + as_element(1234.5678e-12) + as_element(1234567), "0.51.23457e-091234567");
}

// Names and values of every length around the steps in which room grows and text is scanned.
TEST(JsonWriter, GrowsWithoutLosingAByte)
{
    json_writer writer(nullptr, true);
    std::string expected = "{";
    for (std::size_t length = 0; length < 300; ++length) {
        const std::string name(length, 'n'), value = std::string(length, 'v') + "\n";
        writer.element(name.c_str(), value.c_str());
        expected += (length == 0 ? " \"" : ", \"") + name + "\": \"" + std::string(length, 'v') + "\\n\"";
    }
    writer.element("huge", std::string(1 << 20, '"').c_str());
    expected += ", \"huge\": \"";
    for (int i = 0; i < 1 << 20; ++i)
        expected += "\\\"";
    writer.finish();
    EXPECT_EQ(writer.text(), expected + "\" }");
}

namespace {

template <class Copy>
std::string copy_with(Copy copy, const char* text, std::size_t room)
{
    std::string result;
    const auto buffer = std::make_unique<char[]>(room);
    while (text != nullptr) {
        const lumo::escaped done = copy(text, buffer.get(), 0, room);
        result.append(buffer.get(), done.size);
        text = done.rest;
    }
    return result;
}

} // namespace

TEST(EscapedCopy, GivesWhatThePlainFormGives)
{
    std::mt19937 random(7);
    const std::string alphabet = std::string("\"\\\n\r\t\x01\x0b\x0c\x0e\x1f !#[]~\x7f\x80\xff") + "abcdefghijklmnop";
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 70, ' ');
        const unsigned plain = random() % 3;
        for (char& c : text)
            c = plain == 0 ? alphabet[random() % alphabet.size()] : random() % 20 ? 'x' : '"';
        const std::size_t step = 32 + random() % 60;
        ASSERT_EQ(copy_with(lumo::copy_escaped, text.c_str(), step),
                  copy_with(lumo::copy_escaped_plain, text.c_str(), step));
    }
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
