// Labels: threads
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <pthread.h>
#include <set>
#include <vector>

#include "host/host.h"
#include "made_up_facts.h"
#include "support/session.h"

using namespace AnalyticsSDK;
using support::read_file;
using support::Session;

namespace {

enum State
{
    idle,
    root,
    object,
    array,
    states
};

void Enter(analytics_session* session, int state)
{
    if (state != idle)
        analytics_event_begin(session, "e");
    if (state == object)
        analytics_name_object_begin(session, "o");
    if (state == array)
        analytics_name_array_begin(session, "a");
}

/// Ends what Enter() began: works only if nothing has changed since. @return the event's text
std::string Leave(const Session& session, int state)
{
    if (state == object || state == array) {
        EXPECT_EQ(state == object ? analytics_object_end(session) : analytics_array_end(session), 0u);
    }
    EXPECT_EQ(analytics_event_end(session), state == idle ? 301u : 0u);
    return state == idle ? "" : session.last_event();
}

/// A call of the interface, still without its session.
template <typename... Parameters, typename... Arguments>
std::function<uint32_t(analytics_session*)> With(uint32_t (*call)(analytics_session*, Parameters...),
                                                 Arguments... arguments)
{
    return [=](analytics_session* session) { return call(session, arguments...); };
}

char logCopy[8];
constexpr const char* null = nullptr;

/// What is answered in each state (no event, in its root, in an object, in an array), and the calls that answer so.
const struct
{
    uint32_t results[states];
    std::vector<std::function<uint32_t(analytics_session*)>> calls;
} matrix[] = {
    {{0, 300, 300, 300}, {With(analytics_event_begin, "f")}},
    {{301, 0, 302, 302}, {With(analytics_event_end)}},
    {{301, 303, 0, 401}, {With(analytics_object_end)}},
    {{301, 304, 400, 0}, {With(analytics_array_end)}},
    {{301, 0, 0, 401},
     {With(analytics_name_object_begin, "n"), With(analytics_name_array_begin, "n"),
      With(analytics_name_string_add, "n", "v"), With(analytics_name_int32_add, "n", 1),
      With(analytics_name_int64_add, "n", 1), With(analytics_name_bool_add, "n", true),
      With(analytics_name_float64_add, "n", 1.0), With(analytics_name_uint64_add, "n", 1),
      With(analytics_name_text_add, "n", "v", 1)}},
    {{301, 400, 400, 0},
     {With(analytics_object_begin), With(analytics_array_begin), With(analytics_string_add, "v"),
      With(analytics_int32_add, 1), With(analytics_int64_add, 1), With(analytics_bool_add, true),
      With(analytics_float64_add, 1.0), With(analytics_uint64_add, 1), With(analytics_text_add, "v", 1)}},
    {{301, 400, 400, 400},
     {With(analytics_name_string_add, null, "v"), With(analytics_name_int32_add, null, 1),
      With(analytics_name_int64_add, null, 1), With(analytics_name_bool_add, null, true),
      With(analytics_name_float64_add, null, 1.0), With(analytics_name_uint64_add, null, 1),
      With(analytics_name_text_add, null, "v", 1)}},
    {{301, 0, 0, 0}, {With(analytics_property_add, "os_name")}},
    {{301, 104, 104, 104}, {With(analytics_property_add, "nosuch"), With(analytics_property_add, null)}},
    {{0, 0, 0, 0},
     {With(analytics_observer_add, "size", nullptr, nullptr), With(analytics_log_get, logCopy, sizeof logCopy),
      With(analytics_log_get, nullptr, 5)}},
    {{205, 205, 205, 205},
     {With(analytics_observer_add, "done", nullptr, nullptr), With(analytics_observer_add, null, nullptr, nullptr)}},
    {{200, 200, 200, 200}, {With(analytics_send, 1)}},
};

} // namespace

// The text of events is checked by fuzz_event and by the tests of the C++ face.
TEST(OneSession, AnswersEveryCallInEveryStateByTheTable)
{
    const char* const untouched[states] = {"", "{ }", R"({ "o": { } })", R"({ "a": [ ] })"};
    for (const auto& row : matrix)
        for (const auto& call : row.calls) {
            SCOPED_TRACE("row " + std::to_string(&row - matrix) + ", call " + std::to_string(&call - row.calls.data()));
            EXPECT_EQ(call(nullptr), 100u);
            for (int state = idle; state < states; ++state) {
                Session session;
                Enter(session, state);
                EXPECT_EQ(call(session), row.results[state]) << "in state " << state;
                if (row.results[state] != 0) {
                    EXPECT_EQ(Leave(session, state), untouched[state]) << "in state " << state;
                }
            }
        }
}

TEST(OneSession, NestsToAnyDepth)
{
    Session s;
    for (const int depth : {40, 3, 300}) { // frames are used again, up to a depth
        std::string expected = "{ ";
        analytics_event_begin(s, "deep");
        for (int level = 0; level < depth; ++level) {
            EXPECT_EQ(analytics_name_object_begin(s, "o"), 0u);
            expected += "\"o\": { ";
        }
        for (int level = 0; level < depth; ++level) {
            EXPECT_EQ(analytics_object_end(s), 0u);
            expected += "} ";
        }
        EXPECT_EQ(analytics_event_end(s), 0u);
        EXPECT_EQ(s.last_event(), expected + "}");
    }
    analytics_event_begin(s, "open");
    analytics_name_array_begin(s, "a");
    analytics_string_add(s, std::string(5000, 'x').c_str());
    for (int level = 0; level < 30'000; ++level)
        analytics_array_begin(s);
    // On a small stack, which a recursion as deep as the event would overflow. LeakSanitizer sees what is not freed.
    pthread_attr_t small;
    pthread_t closer;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 128 * 1024);
    const auto close = [](void* session) -> void* { return static_cast<Session*>(session)->close(), nullptr; };
    ASSERT_EQ(pthread_create(&closer, &small, close, &s), 0);
    pthread_join(closer, nullptr);
    EXPECT_EQ(support::split_lines(read_file(s.log())).size(), 3u);
}

TEST(OneSession, BeginsWhatItUsesAgainAnew)
{
    const Session s;
    analytics_event_begin(s, "e");
    for (const int value : {1, 2}) {
        analytics_name_array_begin(s, "a");
        analytics_int32_add(s, value);
        analytics_array_end(s);
        analytics_name_object_begin(s, "o");
        analytics_name_int32_add(s, "n", value);
        analytics_object_end(s);
    }
    analytics_event_end(s);
    EXPECT_EQ(s.last_event(), R"({ "a": [ 1 ], "o": { "n": 1 }, "a": [ 2 ], "o": { "n": 2 } })");
}

TEST(OneSession, ReadsATextWithALengthToItsLastByteOnly)
{
    Session s;
    for (const size_t size :
         {0, 1, 15, 16, 255, 256, 257, 100'000}) { // exactly as long on the heap, for the sanitizers
        const std::unique_ptr<char[]> text(new char[size]());
        analytics_event_begin(s, "e");
        EXPECT_EQ(analytics_name_text_add(s, "t", text.get(), size), 0u);
        EXPECT_EQ(analytics_name_text_add(s, "u", nullptr, size), 0u);
        analytics_event_end(s);
        std::string expected = R"({ "t": ")";
        for (size_t at = 0; at < size; ++at)
            expected += "\\u0000";
        expected += R"(", "u": null })";
        std::string logged(expected.size(), '\0');
        analytics_log_get(s, logged.data(), logged.size());
        EXPECT_EQ(logged, expected);
    }
}

TEST(OneSession, ReadsFieldsWithoutATerminatorToTheirSize)
{
    analytics_config config;
    memset(&config, 'x', sizeof config);
    support::ScratchFolder folder;
    std::string path = folder.file("log");
    path.insert(path.rfind('/'), 260 - path.size(), '/'); // a long spelling of the same path, just as long as the field
    support::set_field(config.event_log_file, path);
    analytics_session* session = analytics_initialize(&config);
    analytics_event_begin(session, "e");
    analytics_event_end(session);
    analytics_shutdown(session);
    analytics_shutdown(analytics_initialize(nullptr)); // null for null, and no harm in it
    const auto text = [](size_t size) { return "\"" + std::string(size, 'x') + "\", "; };
    const std::string line = read_file(folder.file("log"));
    EXPECT_EQ(line.substr(line.find(", \"x") + 2), text(100) + text(50) + text(40) + "\"e\", { } ]\n");
}

TEST(OneSession, HasASentenceForEveryCode)
{
    const std::string other = analytics_result_text(0xffffffff);
    std::map<std::string, uint32_t> codes; // no two share a sentence
    for (uint32_t code = 0; code < 1000; ++code)
        codes.emplace(analytics_result_text(code), code);
    std::set<uint32_t> known;
    for (const auto& [sentence, code] : codes)
        known.insert(sentence == other ? 1000 : code);
    EXPECT_EQ(known, (std::set<uint32_t>{0,   1,   2,   100, 101, 104, 200, 201, 202, 203, 204, 205, 206,
                                         207, 300, 301, 302, 303, 304, 400, 401, 402, 500, 501, 502, 1000}));
}

TEST(Properties, AreAnsweredByKeyExactly)
{
    char text[200] = "left over";
    for (const char* key : {"nosuch", "", "OS_NAME", "os_name ", null}) {
        EXPECT_EQ(analytics_property_get(nullptr, key, text, sizeof text), 104u);
        EXPECT_STREQ(text, "");
    }
    for (const char* key : {"os_name", "os_ver", "arch", "cpu_usage", "ram_total", "ram_free", "vm_total", "vm_free",
                            "hd_total", "hd_free", "bios", "uuid", "tz", "mfg"}) {
        EXPECT_EQ(analytics_property_get(nullptr, key, text, sizeof text), 0u) << key;
        EXPECT_STRNE(text, "") << key;
    }
}

TEST(Properties, AreListedOldOnesFirst)
{
    std::string keys;
    const auto list = [](void* to, const char* key, const char* sentence) {
        *static_cast<std::string*>(to) += std::string(key) + (sentence[0] ? " " : "!");
    };
    analytics_property_each(list, &keys);
    analytics_property_each(nullptr, &keys);
    EXPECT_EQ(keys,
              "os_name os_ver mfg model arch cpu cpu_clock cpu_usage ram_total ram_free vm_total vm_free hd_total "
              "hd_free bios uuid tz system system_version kernel machine processors memory_bytes "
              "memory_available_bytes disk_bytes disk_free_bytes locale time_zone desktop display virtualized "
              "boot_seconds ");
}

TEST(Properties, ThatAreNumbersAreAddedAsNumbers)
{
    MadeUpFacts facts;
    facts.missing = host::answer::unsupported;
    facts.volume = {4096, 39038085, 9794921};
    facts.numbers = {{host::number_fact::memory, UINT64_MAX}};
    facts.texts = {{host::text_fact::time_zone, {"Europe/Berlin"}}, {host::text_fact::desktop, {""}}};
    const Session s;
    analytics_event_begin(s, "e");
    for (const char* key : {"disk_bytes", "disk_free_bytes", "memory_bytes", "time_zone", "desktop"})
        EXPECT_EQ(analytics_property_add(s, key), 0u) << key;
    for (const char* key : {"processors", "kernel"})
        EXPECT_EQ(analytics_property_add(s, key), 1u) << key;
    analytics_event_end(s);
    EXPECT_EQ(s.last_event(), R"({ "disk_bytes": 159899996160, "disk_free_bytes": 40119996416, )"
                              R"("memory_bytes": 18446744073709551615, "time_zone": "Europe/Berlin", "desktop": "" })");
    char text[21] = "";
    EXPECT_EQ(analytics_property_get(s, "memory_bytes", text, sizeof text), 0u);
    EXPECT_STREQ(text, "18446744073709551615");
    EXPECT_EQ(analytics_property_get(s, "memory_bytes", text, sizeof text - 1), 0u);
    EXPECT_STREQ(text, ""); // what does not fit
}

TEST(Properties, OfTheProcessorAreAskedForOnce)
{
    // In a process of its own, because the library keeps the answer until the process ends.
    const auto ask = [] {
        static int asked = 0;
        host::source facts = host::system_facts();
        facts.processor = [](host::processor_identity& identity) {
            identity.named = true;
            snprintf(identity.name.data(), identity.name.size(), "%s", ++asked == 1 ? "" : "Made Up");
            return host::answer::found;
        };
        host::replacement = &facts;
        char text[200];
        for (int call = 0; call < 4; ++call)
            if (analytics_property_get(nullptr, "cpu", text, sizeof text) != 0)
                exit(1);
        exit(asked == 2 && std::string(text) == "Made Up" ? 0 : 2); // the empty answer was not kept
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ask(), testing::ExitedWithCode(0), "");
}
