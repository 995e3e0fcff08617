// The text of events: through the classes, through the C interface, and what it costs to grow.
#include "session.h"
#include "sinks.h"
#include "table.h"

#include <algorithm>
#include <cstdio>
#include <list>
#include <vector>

using namespace bench;

namespace {

void with_rapidjson(long times)
{
    rapidjson::StringBuffer buffer;
    for (long i = 0; i < times; ++i) {
        buffer.Clear();
        RapidSink sink(buffer);
        write_event(sink);
        sink.finish();
        keep(*buffer.GetString());
    }
}

void with_classes(long times)
{
    for (long i = 0; i < times; ++i) {
        ClassSink sink;
        write_event(sink);
        sink.root.EndObject();
        keep(*sink.root.GetWriter()->text.data());
    }
}

const Group text_rows("text", [](Table& table) {
    table.row("event text, classes", "RapidJSON Writer, reused buffer", compare(with_classes, with_rapidjson),
              at_most(0.60, 0.30));
    const Session session("");
    table.row("event text, C interface", "RapidJSON Writer, reused buffer",
              compare(
                  [&](long times) {
                      for (long i = 0; i < times; ++i)
                          log_event(session.get());
                  },
                  with_rapidjson),
              at_most(0.75, 0.40));
});

// What a session's own beginning of every event costs, by what it adds to the text of the plain event. A difference of
// two small times moves by a third with the places that a pair of sessions gets in memory, so many pairs are looked at,
// all alive at once; the middle one counts.
Figures added_by(const std::function<void(analytics_session*)>& set_up)
{
    constexpr size_t pairs = 15;
    constexpr int turns = 21;
    std::list<Session> sessions;
    std::vector<Figures> added;
    while (added.size() < pairs) {
        const Session &plain = sessions.emplace_back(""), &more = sessions.emplace_back("");
        set_up(more.get());
        const auto logs = [](const Session& session) {
            return [&session](long times) {
                for (long i = 0; i < times; ++i)
                    log_event(session.get());
            };
        };
        Figures& figures = added.emplace_back(compare(logs(more), logs(plain), turns));
        figures.ours -= figures.reference;
        figures.ratio -= 1;
    }
    const auto middle = added.begin() + pairs / 2;
    std::nth_element(added.begin(), middle, added.end(),
                     [](const auto& a, const auto& b) { return a.ratio < b.ratio; });
    return *middle;
}

const Group beginning_rows("text: stamps and context", [](Table& table) {
    table.row("four stamps, by what they add", "event text, C interface", added_by([](analytics_session* session) {
                  analytics_option_set(session, "stamp", "time_ms,sequence,session,event");
              }),
              at_most(0.35, 0.25));
    table.row("ten context members, likewise", "event text, C interface", added_by([](analytics_session* session) {
                  for (const auto& [name, value] : texts)
                      analytics_context_string_set(session, name, value);
              }),
              at_most(0.35, 0.10));
});

// An event of so many members, or so deep, without a log file.
void log_members(analytics_session* session, long members)
{
    analytics_event_begin(session, "curve");
    for (long i = 0; i < members; ++i)
        analytics_name_string_add(session, "member", "its value");
    analytics_event_end(session);
}

void log_nested(analytics_session* session, long depth)
{
    analytics_event_begin(session, "curve");
    for (long i = 0; i < depth; ++i)
        analytics_name_object_begin(session, "child");
    for (long i = 0; i < depth; ++i)
        analytics_object_end(session);
    analytics_event_end(session);
}

// The least of many short runs.
double least_ns(const Work& work)
{
    long times = 1;
    while (seconds_of([&] { work(times); }, Clock::thread) < 0.001)
        times *= 2;
    double least = 1e9;
    for (int i = 0; i < 60; ++i)
        least = std::min(least, 1e9 * seconds_of([&] { work(times); }, Clock::thread) / static_cast<double>(times));
    return least;
}

// What events of so many members cost, in short turns over all sizes in rotation, so that disturbances affect all sizes
// alike. The low values of many are used: differences are taken of them, and disturbances only ever add.
std::vector<double> events_ns(const Session& session, const std::vector<long>& sizes)
{
    constexpr double turn_ns = 300'000;
    std::vector<std::vector<double>> taken(sizes.size());
    for (int round = 0; round < 300; ++round)
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            const long times = 1 + static_cast<long>(turn_ns / (50 + 4 * static_cast<double>(sizes[i])));
            const double seconds = seconds_of(
                [&] {
                    for (long k = 0; k < times; ++k)
                        log_members(session.get(), sizes[i]);
                },
                Clock::thread);
            taken[i].push_back(seconds * 1e9 / static_cast<double>(times));
        }
    std::vector<double> low;
    for (std::vector<double>& of_size : taken) {
        std::sort(of_size.begin(), of_size.end());
        low.push_back(of_size[of_size.size() / 10]);
    }
    return low;
}

const Group member_curve("curve: members", [](Table& table) {
    const Session session("");
    const std::vector<long> sizes = {0, 1, 20, 200, 2000};
    const std::vector<double> taken = events_ns(session, sizes);
    std::vector<double> each;
    for (std::size_t i = 1; i < sizes.size(); ++i) {
        each.push_back((taken[i] - taken[0]) / static_cast<double>(sizes[i]));
        char text[64];
        std::snprintf(text, sizeof text, "%ld members: %.2f ns each", sizes[i], each.back());
        table.note("cost per member", text);
    }
    // That of a single member is shown only: it partly overlaps with the fixed cost of an event.
    const Figures figures = {std::max(each[2], each[3]), each[1], std::max(each[2], each[3]) / each[1], "ns"};
    table.row("cost per member, dearer of 200, 2,000", "cost per member of an event of 20", figures, at_most(1.5, 1.5));
});

const Group nesting_curve("curve: nesting", [](Table& table) {
    const Session session("");
    for (const long depth : {1L, 10L, 30L, 100L}) {
        const double taken = least_ns([&](long times) {
            for (long i = 0; i < times; ++i)
                log_nested(session.get(), depth);
        });
        char text[64];
        std::snprintf(text, sizeof text, "%ld deep: %.3g us, %.0f ns per level", depth, taken / 1e3,
                      taken / static_cast<double>(depth));
        table.note("cost of nesting", text);
    }
});

} // namespace
