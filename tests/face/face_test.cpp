// The C++ face: what it makes of C++ values and scopes, seen in the lines of the event log file. Compiled as C++17.
// Labels: network
#include "analytics.hpp"

#include "support/child.h"
#include "support/http_server.h"
#include "support/scratch.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>

using analytics::result;

static_assert(!std::is_copy_constructible_v<analytics::session> && !std::is_move_constructible_v<analytics::event>);

namespace {

class Face : public testing::Test
{
protected:
    analytics::settings settings(const std::string& url = "http://127.0.0.1:1/")
    {
        analytics::settings given;
        given.upload_url = url;
        given.event_log_file = m_folder.file("events.log");
        given.unique_id = "U";
        given.unique_id_file = m_folder.file("id");
        given.application_id = "A";
        given.application_version = "1";
        return given;
    }

    /// The lines, each from its event's name on.
    std::vector<std::string> events()
    {
        std::vector<std::string> found = support::split_lines(support::read_file(m_folder.file("events.log")));
        for (std::string& line : found)
            line.erase(0, line.find("\"U\", ") + 5);
        return found;
    }

    using Events = std::vector<std::string>;
    support::ScratchFolder m_folder;
};

enum : short
{
    small = -7
};

} // namespace

TEST_F(Face, BeginsEventsWithStampsAndContext)
{
    analytics::session session(settings());
    EXPECT_EQ(session.stamp("sequence"), result::ok);
    EXPECT_EQ(session.stamp("nosuch"), result::value_refused);
    session.context("user", std::string("a"));
    session.context("paid", true);
    session.context("level", 7);
    session.context("share", 0.5);
    session.context("most", UINT64_MAX);
    session.log("e", {{"own", 1}});
    session.remove_context("user");
    session.log("f");
    EXPECT_EQ(
        events(),
        (Events{"\"e\", { \"sequence\": 1, \"user\": \"a\", \"paid\": true, \"level\": 7, "
                "\"share\": 0.5, \"most\": 1.84467e+19, \"own\": 1 } ]",
                "\"f\", { \"sequence\": 2, \"paid\": true, \"level\": 7, \"share\": 0.5, \"most\": 1.84467e+19 } ]"}));
}

TEST_F(Face, SetsOptions)
{
    analytics::session session(settings());
    std::string value;
    EXPECT_EQ(session.set_option("batch_bytes", 5000), result::ok);
    EXPECT_EQ(session.set_option("batch_bytes", -1), result::value_refused);
    EXPECT_EQ(session.option("nosuch", value), result::unknown_option);
    EXPECT_EQ(session.option("batch_bytes", value), result::ok);
    EXPECT_EQ(value, "5000");
}

TEST_F(Face, TellsTheFiguresOfDelivery)
{
    support::HttpServer server(503);
    analytics::session session(settings(server.url()));
    EXPECT_EQ(session.set_option("delivery", "batches"), result::ok);
    session.log("e");
    EXPECT_EQ(session.send_for(std::chrono::seconds(20)), result::send_failed);
    EXPECT_EQ(session.stats().requests_failed, 1u);
    EXPECT_NE(session.last_error().find("503"), std::string::npos);
    server.answer(200);
    EXPECT_EQ(session.send_for(std::chrono::hours(10'000)), result::ok);
    EXPECT_EQ(session.stats().events_delivered, 1u);
}

TEST_F(Face, AddsEveryTypeByItsKind)
{
    analytics::session session(settings());
    {
        auto event = session.open_event("e");
        event.add("b", true);
        event.add("i8", static_cast<signed char>(-8));
        event.add("u8", static_cast<unsigned char>(200));
        event.add("i16", static_cast<short>(small));
        event.add("i", INT32_MIN);
        event.add("u", 4294967295u);
        event.add("l", INT64_MIN);
        event.add("ul", static_cast<unsigned long>(INT64_MAX));
        event.add("big", UINT64_MAX);
        event.add("all", analytics::exact{UINT64_MAX});
        event.add("whole", analytics::exact{std::string_view("a\0b", 3)});
        event.add("f", 0.5f);
        event.add("d", 1e20);
        event.add("c", "text");
        event.add("s", std::string("string"));
        event.add("v", std::string_view("view, cut", 4));
        event.add("n", nullptr);
        event.add("o1", std::optional<int>(1));
        event.add("o0", std::optional<std::string>());
        event.add("o", std::nullopt);
        event.add("p", static_cast<const char*>(nullptr));
        event.add(std::string("name"), std::chrono::microseconds(1600));
        event.add(std::string_view("cut", 2), std::chrono::duration<double>(1e300));
        event.add("vector", std::vector<std::optional<int>>{1, {}});
        event.add("bools", std::vector<bool>{true, false});
        event.add("nested", std::array<std::vector<long>, 2>{{{1}, {}}});
        event.add("braces", {"a", "bc"});
        event.add("map", std::map<std::string, double>{{"x", 0.5}});
        event.open_array("l").add({{"k", 1}});
    }
    EXPECT_EQ(events(),
              Events{R"("e", { "b": true, "i8": -8, "u8": 200, "i16": -7, "i": -2147483648, "u": 4294967295, )"
                     R"("l": -9223372036854775808, "ul": 9223372036854775807, "big": 1.84467e+19, )"
                     R"("all": 18446744073709551615, "whole": "a\u0000b", "f": 0.5, )"
                     R"("d": 1e+20, "c": "text", "s": "string", "v": "view", "n": null, "o1": 1, "o0": null, )"
                     R"("o": null, "p": null, "name": 2, "cu": 1e+303, "vector": [ 1, null ], )"
                     R"("bools": [ true, false ], "nested": [ [ 1 ], [ ] ], "braces": [ "a", "bc" ], )"
                     R"("map": { "x": 0.5 }, "l": [ { "k": 1 } ] } ])"});
}

TEST_F(Face, SaysWhatTheUserAgreesTo)
{
    analytics::session session(settings());
    EXPECT_EQ(session.consent(analytics::consent::revoked), result::ok);
    EXPECT_EQ(session.log("e"), result::ok);
    EXPECT_EQ(session.send(), result::send_no_consent);
    EXPECT_EQ(events(), Events{});
}

TEST_F(Face, LogsAWholeEventInOneLine)
{
    analytics::session session(settings());
    const std::string key = "size";
    EXPECT_EQ(session.log("click", {{"button", "ok"}, {"count", 3}}), result::ok);
    EXPECT_EQ(session.log(key, {{key, {{"width", 640}}}, {"ids", {1, 2}}, {nullptr, 1}, {"last", true}}),
              result::name_required);
    {
        auto event = session.open_event(key + ", a name that nobody else keeps");
        auto object = event.open_object(key + ", another one of those");
        EXPECT_EQ(session.log("second"), result::event_open);
    }
    EXPECT_EQ(events(), (Events{R"("click", { "button": "ok", "count": 3 } ])",
                                R"("size", { "size": { "width": 640 }, "ids": [ 1, 2 ], "last": true } ])",
                                R"("size, a name that nobody else keeps", { "size, another one of those": { } } ])"}));
}

TEST_F(Face, IsCompiledOrRefusedInOneSentence)
{
    const std::string wrong = "static assertion failed: ", value = wrong + "an event holds", name = wrong + "a name is";
    const struct
    {
        const char *language, *line;
        std::string expected;
    } cases[] = {
        {"-std=c++20", "int raw[2] = {}; event.add(\"k\", std::span(raw));", ""},
        {"-std=c++20", "event.add(\"k\", u8\"text\");", value},
        {"-std=c++17", "event.add(\"k\", 'c');", value},
        {"-std=c++17", "session.log(\"e\", {{\"k\", std::tm()}});", value},
        {"-std=c++17", "event.add(\"k\", std::vector<std::pair<int, int>>());", value},
        {"-std=c++17", "event.open_array(\"k\").add(&event);", wrong + "an array holds"},
        {"-std=c++17", "(void)session.open_event(1);", name},
        {"-std=c++17", "event.add(1, 1);", name},
    };
    for (const auto& [language, line, expected] : cases) {
        const support::ChildOptions code{
            {"LC_ALL=C"},
            {},
            std::string("#include <analytics.hpp>\n#include <ctime>\n#include <version>\n#ifdef __cpp_lib_span\n"
                        "#include <span>\n#endif\nvoid f(analytics::session& session, analytics::event& event)\n{\n") +
                line + "\n(void)session, (void)event;\n}\n"};
        const std::string said =
            support::run({"g++", language, "-fsyntax-only", std::string("-I") + TEST_SOURCE_DIR + "/inc", "-xc++", "-"},
                         code)
                .errors;
        const size_t first = said.find("error: ");
        EXPECT_EQ(first == std::string::npos ? said : said.substr(first + 7, expected.size()), expected) << line;
        EXPECT_EQ(said.find("error: ", first == std::string::npos ? first : first + 7), std::string::npos) << said;
    }
}

TEST_F(Face, EndsScopesFromTheInnermostOutwards)
{
    analytics::session session(settings());
    {
        auto event = session.open_event("e");
        auto list = event.open_array("list");
        list.add(1);
        {
            auto inner = list.open_array();
            auto item = inner.open_object();
            item.add("k", "v");
        }
        auto last = list.open_object();
        auto deep = last.open_object("deep");
        EXPECT_EQ(events(), Events{});
    }
    EXPECT_EQ(events(), Events{R"("e", { "list": [ 1, [ { "k": "v" } ], { "deep": { } } ] } ])"});
}

TEST_F(Face, AddingToAScopeEndsWhatIsOpenInIt)
{
    analytics::session session(settings());
    auto event = session.open_event("e");
    auto object = event.open_object("o");
    auto list = object.open_array("l");
    list.add(1);
    EXPECT_EQ(event.add("after", 2), result::ok);
    EXPECT_FALSE(object);
    EXPECT_FALSE(list);
    EXPECT_EQ(list.add(3), result::no_event);
    EXPECT_EQ(object.add("k", 3), result::no_event);
    EXPECT_EQ(object.open_object("x").opened(), result::no_event);
    EXPECT_EQ(object.end(), result::no_event);
    auto sibling = event.open_object("p"); // at the depth that `object` had: the two must not be confused
    EXPECT_EQ(object.add("k", 3), result::no_event);
    EXPECT_EQ(sibling.add("k", 4), result::ok);
    EXPECT_EQ(event.end(), result::ok);
    EXPECT_EQ(events(), Events{R"("e", { "o": { "l": [ 1 ] }, "after": 2, "p": { "k": 4 } } ])"});
}

TEST_F(Face, LeavesNoEventHalfBuiltWhateverPasses)
{
    analytics::session session(settings());
    try {
        auto event = session.open_event("broken");
        auto list = event.open_array("l");
        list.add(1);
        throw std::runtime_error("passing");
    } catch (const std::runtime_error&) {
    }
    {
        auto event = session.open_event("by the C interface");
        auto object = event.open_object("o");
        analytics_name_array_begin(session.handle(), "l");
        analytics_object_begin(session.handle());
    }
    EXPECT_TRUE(session.open_event("next"));
    EXPECT_EQ(events(), (Events{R"("broken", { "l": [ 1 ] } ])", R"("by the C interface", { "o": { "l": [ { } ] } } ])",
                                R"("next", { } ])"}));
}

TEST_F(Face, ASessionThatClosesEndsItsEventFirst)
{
    auto session = std::make_unique<analytics::session>(settings());
    auto event = session->open_event("e");
    auto object = event.open_object("o");
    session.reset();
    EXPECT_FALSE(event);
    EXPECT_FALSE(object);
    EXPECT_EQ(events(), Events{R"("e", { "o": { } } ])"});
}

TEST_F(Face, RefusesSettingsThatDoNotFit)
{
    analytics::settings given = settings();
    given.unique_id = std::string(40, 'u');
    EXPECT_TRUE(analytics::session(given));
    given.unique_id += 'u';
    analytics::session session(given);
    EXPECT_FALSE(session);
    EXPECT_EQ(session.open_event("e").opened(), result::no_session);
    EXPECT_EQ(session.send(), result::no_session);
    EXPECT_STREQ(analytics::text(result::no_session), analytics_result_text(100));
}

TEST_F(Face, AddsPropertiesOfTheMachine)
{
    analytics::session session(settings());
    std::string name;
    EXPECT_EQ(session.property("os_name", name), result::ok);
    EXPECT_FALSE(name.empty());
    EXPECT_EQ(session.property("nosuch", name), result::unknown_property);
    EXPECT_EQ(name, "");
    session.property("os_name", name);
    {
        auto event = session.open_event("e");
        auto list = event.open_array("l");
        EXPECT_EQ(list.add_property("os_name"), result::ok);
        EXPECT_EQ(event.add_property("os_name"), result::ok);
        EXPECT_EQ(event.add_property("nosuch"), result::unknown_property);
    }
    EXPECT_EQ(events(), Events{R"("e", { "l": [ ")" + name + R"(" ], "os_name": ")" + name + R"(" } ])"});
}

TEST_F(Face, TellsTheObserversThatItWasGiven)
{
    support::HttpServer server([](const support::Request&) { return support::Reply{200, "12345"}; });
    analytics::session session(settings(server.url()));
    std::atomic<int> size{-1}, received{-1}, outcome{-1};
    session.observe(analytics::upload::size, [&](std::uint32_t value, double) { size = static_cast<int>(value); });
    session.observe(analytics::upload::progress,
                    [&](std::uint32_t value, double) { received = static_cast<int>(value); });
    session.observe(analytics::upload::complete,
                    [&](std::uint32_t value, double) { outcome = static_cast<int>(value); });
    session.observe(analytics::upload::error, [&](std::uint32_t value, double) { outcome = static_cast<int>(value); });
    (void)session.open_event("one");
    EXPECT_EQ(session.send(), result::ok);
    (void)session.open_event("two");
    EXPECT_EQ(session.start_send(), result::ok);
    ASSERT_TRUE(support::wait_until([&] { return outcome >= 0; }));
    // A machine without a route gives up what it queued (200); the event is kept then.
    if (outcome == 0) {
        EXPECT_EQ(size, 5);
        EXPECT_EQ(received, 5);
        EXPECT_EQ(events(), Events{});
    } else {
        EXPECT_EQ(outcome, 200);
        EXPECT_EQ(events().size(), 1u);
    }
}
