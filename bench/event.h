// The event that the bench builds everywhere: 21 members. 10 short strings, 4 int, 2 int64, 2 double, 1 bool, 1 object
// of 4 and 1 array of 8; the same data for every way of writing it.
#pragma once

#include <cstdint>

namespace bench {

struct NamedText
{
    const char *name, *value;
};
struct NamedNumber
{
    const char* name;
    std::int64_t value;
};
struct NamedDouble
{
    const char* name;
    double value;
};

inline constexpr NamedText texts[] = {{"user", "a1b2c3d4"},     {"screen", "main window"}, {"action", "open"},
                                      {"source", "menu"},       {"language", "en-GB"},     {"theme", "dark"},
                                      {"document", "report 7"}, {"channel", "stable"},     {"build", "4.2.1-rc3"},
                                      {"note", "said \"ok\""}};
inline constexpr NamedNumber ints[] = {{"count", 17}, {"width", 1920}, {"height", 1080}, {"delta", -42}};
inline constexpr NamedNumber longs[] = {{"bytes", 1099511627776}, {"ticks", 1287654321987}};
inline constexpr NamedDouble doubles[] = {{"ratio", 0.4375}, {"seconds", 12.8371}};
inline constexpr NamedNumber parts[] = {{"pages", 12}, {"images", 3}, {"tables", 0}, {"links", 48}};
inline constexpr int samples[] = {3, 14, 15, 92, 653, 5897, 93238, 4626433};

/// Writes the event through anything that takes it piece by piece.
template <class Sink>
void write_event(Sink& sink)
{
    for (const auto& [name, value] : texts)
        sink.text(name, value);
    for (const auto& [name, value] : ints)
        sink.integer(name, static_cast<int>(value));
    for (const auto& [name, value] : longs)
        sink.long_integer(name, value);
    for (const auto& [name, value] : doubles)
        sink.number(name, value);
    sink.boolean("first", true);
    sink.object("parts");
    for (const auto& [name, value] : parts)
        sink.integer(name, static_cast<int>(value));
    sink.end_object();
    sink.array("samples");
    for (const int value : samples)
        sink.element(value);
    sink.end_array();
}

} // namespace bench
