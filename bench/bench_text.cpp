// The text of events: through the classes, through the C interface, and what it costs to grow.
#include "session.h"
#include "sinks.h"
#include "table.h"

#include <algorithm>
#include <cstdio>

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
        keep(*sink.root.GetWriter()->text().data());
    }
}

const Group text_rows("text", [](Table& table) {
    table.row("event text, classes", "RapidJSON Writer, reused buffer", compare(with_classes, with_rapidjson),
              at_most(0.50, 0.30));
    const Session session("");
    table.row("event text, C interface", "RapidJSON Writer, reused buffer",
              compare(
                  [&](long times) {
                      for (long i = 0; i < times; ++i)
                          log_event(session.get());
                  },
                  with_rapidjson),
              at_most(0.70, 0.45));
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

// The least of many short runs: what is subtracted below must be free of whatever else the machine did.
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

const Group member_curve("curve: members", [](Table& table) {
    const Session session("");
    const auto event_of = [&](long members) {
        return least_ns([&, members](long times) {
            for (long i = 0; i < times; ++i)
                log_members(session.get(), members);
        });
    };
    const double empty = event_of(0);
    std::vector<double> each;
    for (const long members : {1L, 20L, 200L, 2000L}) {
        each.push_back((event_of(members) - empty) / static_cast<double>(members));
        char text[64];
        std::snprintf(text, sizeof text, "%ld members: %.2f ns each", members, each.back());
        table.note("cost per member", text);
    }
    const auto [least, most] = std::minmax_element(each.begin(), each.end());
    table.row("cost per member, dearest", "the cheapest of 1, 20, 200, 2,000 members",
              {*most, *least, *most / *least, "ns"}, at_most(1.5, 1.5));
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
