// What the C++ face costs over the C interface that it calls.
#include "analytics.hpp"
#include "event.h"
#include "session.h"
#include "sinks.h"
#include "table.h"

using namespace bench;

namespace {

void log_through_the_face(analytics::session& session)
{
    auto event = session.open_event("bench");
    for (const auto& [name, value] : texts)
        event.add(name, value);
    for (const auto& [name, value] : ints)
        event.add(name, static_cast<int>(value));
    for (const auto& [name, value] : longs)
        event.add(name, value);
    for (const auto& [name, value] : doubles)
        event.add(name, value);
    event.add("first", true);
    {
        auto object = event.open_object("parts");
        for (const auto& [name, value] : parts)
            object.add(name, static_cast<int>(value));
    }
    auto array = event.open_array("samples");
    for (const int value : samples)
        array.add(value);
}

const Group face_rows("text: C++ face", [](Table& table) {
    analytics::session session(config_of("", "http://127.0.0.1:1/"));
    table.row("event text, C++ face", "the same through the C interface",
              compare(
                  [&](long times) {
                      for (long i = 0; i < times; ++i)
                          log_through_the_face(session);
                  },
                  [&](long times) {
                      for (long i = 0; i < times; ++i)
                          log_event(session.handle());
                  },
                  25),
              at_most(1.20, 1.10));
});

} // namespace
