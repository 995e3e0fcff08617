// The reader of log lines: takes all that the library writes, and nothing that it does not.
#include "table.h"
#include "wire_line.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace std::string_literals;

namespace {

std::string line_with(const std::string& event)
{
    return R"([ 3, "2026-01-31 23:59:59", "app", "1.0", "U", "launch", )" + event + " ]";
}

} // namespace

TEST(WireLine, SlicesTheSevenElementsAsTheyStand)
{
    wire::Line line;
    std::string text = R"([ -3, "", "a\"\\", null, "U", 7, { "k": [ 1, { } ] } ])";
    ASSERT_FALSE(wire::read_line(text, line).has_value());
    EXPECT_EQ(line.version, "-3");
    EXPECT_EQ(line.time, "\"\"");
    EXPECT_EQ(wire::unquoted(line.application), "a\"\\");
    EXPECT_EQ(line.application_version, "null");
    EXPECT_EQ(line.unique_id, "\"U\"");
    EXPECT_EQ(line.name, "7");
    EXPECT_EQ(line.event, R"({ "k": [ 1, { } ] })");
}

TEST(WireLine, TakesEveryEventThatTheLibraryCanWrite)
{
    const std::string events[] = {
        "{ }",
        R"({ "a": 1 })",
        R"({ "a": -9223372036854775808, "b": 1.23457e+06, "c": 1e-05, "d": 0.1, "e": -0 })",
        R"({ "a": nan, "b": -nan, "c": inf, "d": -inf })",
        R"({ "a": null, "b": true, "c": false })",
        R"({ "": "", "a": "", "a": "\"\\\n\r\t" })",
        "{ \"raw\x01\x1b\x7f\": \"\xff\xc3 \xe2\x82\xac , ] } : \" }",
        R"({ "a": [ ], "b": [ [ ], [ [ 1, 2 ], { } ] ], "c": { "d": { } } })",
    };
    wire::Line line;
    for (const std::string& event : events) {
        auto fault = wire::read_line(line_with(event), line);
        EXPECT_FALSE(fault.has_value()) << event << ": " << (fault ? fault->what : "");
    }
}

TEST(WireLine, PointsAtWhatTheLibraryNeverWrites)
{
    struct
    {
        std::string line;
        size_t column;
        const char* what;
    } const cases[] = {
        {"", 1, "expected \"[ \""},
        {"[3, ", 1, "expected \"[ \""},
        {"[ x", 3, "expected an integer"},
        {R"([ 3, "yesterday", )", 6, "expected a time"},
        {R"([ 3, "2026-01-31 23:59:59", "a)", 31, "without its closing quote"},
        {"[ 3, \"\", \"a\tb\"", 12, "raw tab"},
        {"[ 3, \"\", \"a\0b\""s, 12, "NUL"},
        {R"([ 3, "", "a\u0001")", 13, "an escape other than"},
        {line_with("[ ]"), 58, "event's object"},
        {line_with("{}"), 59, "expected \" \""},
        {line_with(R"({ "a" : 1 })"), 63, "expected \": \""},
        {line_with(R"({ "a": 1,"b": 2 })"), 67, "expected \" \""},
        {line_with(R"({ "a": 1 "b": 2 })"), 66, "expected \",\""},
        {line_with(R"({ "a": 01x })"), 65, "expected a value"},
        {line_with(R"({ "a": [ 1 } })"), 68, "expected \",\""},
        {line_with(R"({ "a": tru)"), 65, "expected a value"},
        {line_with(R"({ "a": 1)").substr(0, 65), 66, "too early"},
        {line_with("{ }") + " ", 63, "should end here"},
    };
    for (const auto& [text, column, what] : cases) {
        wire::Line line;
        auto fault = wire::read_line(text, line);
        ASSERT_TRUE(fault.has_value()) << text;
        EXPECT_EQ(fault->column, column) << text << ": " << fault->what;
        EXPECT_NE(fault->what.find(what), std::string::npos) << text << ": " << fault->what;
    }
}

TEST(WireLine, FollowsAnyDepthWithoutRunningOutOfStack)
{
    std::string deep;
    for (int i = 0; i < 1'000'000; ++i)
        deep += "[ ";
    wire::Line line;
    EXPECT_TRUE(wire::read_line(line_with("{ \"a\": " + deep), line).has_value());
}

TEST(WireLine, ShowsOnATerminalWhatATerminalWouldObey)
{
    EXPECT_EQ(wire::printable("a\x1b[1m\x7f \xc2\x9b \xff \xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"s),
              "a\\x1b[1m\\x7f \\xc2\\x9b \\xff ä € 😀");
    EXPECT_EQ(wire::printable("\xed\xa0\x80|\xc0\xaf|\xf4\x90\x80\x80|\xe2\x82"s),
              "\\xed\\xa0\\x80|\\xc0\\xaf|\\xf4\\x90\\x80\\x80|\\xe2\\x82");
}

TEST(WireLine, MakesOfEveryEventAJsonThatAnyReaderTakes)
{
    auto json = nlohmann::json::parse(wire::to_json("{ \"c\x01\": \"\x1b\\\"\\\\ nan, \xff\", \"n\": nan, \"l\": [ "
                                                    "-inf, -nan, inf ], \"x\": -1.5e+20, \"\xc3\xa4\": null }"));
    EXPECT_EQ(json["c\x01"], "\x1b\"\\ nan, \xef\xbf\xbd");
    EXPECT_EQ(json["n"], "nan");
    EXPECT_EQ(json["l"], (nlohmann::json{"-inf", "-nan", "inf"}));
    EXPECT_EQ(json["x"], -1.5e20);
    EXPECT_TRUE(json["ä"].is_null());
    EXPECT_EQ(wire::to_json("\"\xc2\x9b\""), "\"\\u009b\"") << "a terminal would obey it";
}

TEST(Table, MeasuresItsTextsAsATerminalShowsThem)
{
    const std::string long_name(1000, 'n');
    EXPECT_EQ(table::lines({{"A", "NAME"}, {"äöü", "x"}, {"a", "longer"}}), "A    NAME\näöü  x\na    longer\n");
    EXPECT_EQ(table::lines({{"A", "NAME"}, {"中文", "x"}, {"e\u0301", "x"}}), "A     NAME\n中文  x\ne\u0301     x\n");
    EXPECT_EQ(table::lines({{"A", "B"}, {long_name, "x"}}), "A" + std::string(41, ' ') + "B\n" + long_name + "  x\n");
    EXPECT_EQ(table::lines({{"A", "B"}, {"a\xff", "x"}}), "A   B\na\xff  x\n");
    const struct
    {
        const char *text, *start;
    } cases[] = {{"abc", "ab"}, {"ab", "ab"}, {"", ""}, {"a中", "a"}, {"中a", "中"}, {"aé\u0301x", "aé\u0301"}};
    for (const auto& [text, start] : cases)
        EXPECT_EQ(table::cut(text, 2), start) << text;
}
