#include "report.h"

#include "rows.h"

#include "table.h"
#include "wire_line.h"

#include <algorithm>
#include <chrono>

namespace api {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string percent_since(uint64_t now, uint64_t before)
{
    if (before == 0)
        return "";
    const double change =
        100.0 * (static_cast<double>(now) - static_cast<double>(before)) / static_cast<double>(before);
    char text[32];
    std::snprintf(text, sizeof text, "%+.0f %%", change);
    return text;
}

std::string tiles(const store::Summary& now, const store::Summary& before)
{
    const struct
    {
        const char* what;
        uint64_t now, before;
    } rows[] = {{"events", now.events, before.events},
                {"installations", now.installations, before.installations},
                {"new installations", now.new_installations, before.new_installations},
                {"versions", now.versions, before.versions},
                {"names", now.names, before.names},
                {"rejected lines", now.rejects, before.rejects},
                {"dropped by hosts", now.dropped, before.dropped}};
    Rows table = {{"FIGURE", "NOW", "BEFORE", "CHANGE"}};
    for (const auto& row : rows)
        table.push_back(
            {row.what, std::to_string(row.now), std::to_string(row.before), percent_since(row.now, row.before)});
    return table::lines(table);
}

std::string names(const store::Table<store::NameRow>& names)
{
    Rows table = {{"NAME", "EVENTS", "INSTALLATIONS"}};
    for (const store::NameRow& row : names.rows)
        table.push_back({row.name ? wire::printable(*row.name) : "null", std::to_string(row.events),
                         std::to_string(row.installations)});
    return table::lines(table);
}

std::string versions(const store::Table<store::VersionRow>& versions)
{
    Rows table = {{"APPLICATION", "VERSION", "EVENTS", "INSTALLATIONS"}};
    for (const store::VersionRow& row : versions.rows)
        table.push_back({wire::printable(row.application), wire::printable(row.version), std::to_string(row.events),
                         std::to_string(row.installations)});
    return table::lines(table);
}

std::string properties(const store::Table<store::PropertyRow>& properties)
{
    Rows table = {{"PROPERTY", "VALUE", "EVENTS"}};
    for (const store::PropertyRow& row : properties.rows)
        table.push_back({wire::printable(row.key), wire::printable(value_of(row.value)), std::to_string(row.events)});
    return table::lines(table);
}

std::string drawn(const std::vector<store::Point>& points)
{
    uint64_t most = 1;
    for (const store::Point& point : points)
        most = std::max(most, point.events);
    std::string text;
    for (const store::Point& point : points)
        text += line_time(point.at).substr(0, 16) + " " + std::string(60 * point.events / most, '#') + " " +
                std::to_string(point.events) + "\n";
    return text;
}

/// What the tables need of the store.
struct Figures
{
    store::Result<store::Summary> now, before;
    store::Result<store::Table<store::NameRow>> names;
    store::Result<store::Table<store::VersionRow>> versions;
};

store::Result<std::string> tables(store::Reading& reading, const store::Query& query)
{
    store::Query earlier = query;
    earlier.from = query.from - (query.to - query.from);
    earlier.to = query.from;
    const Figures all{reading.summary(query, {}), reading.summary(earlier, {}), reading.names(query, {}),
                      reading.versions(query, {})};
    for (const store::Fault* fault : {&all.now.fault(), &all.before.fault(), &all.names.fault(), &all.versions.fault()})
        if (!fault->text.empty())
            return *fault;
    std::string text = iso_time(query.from) + " to " + iso_time(query.to) + "\n\n" + tiles(*all.now, *all.before) +
                       "\n" + names(*all.names) + "\n" + versions(*all.versions);
    if (query.name) {
        const auto values = reading.properties(query, {});
        if (!values)
            return values.fault();
        text += "\n" + properties(*values);
    }
    return text;
}

store::Result<std::string> with_missing(store::Result<std::string> text, const std::vector<std::string>& missing)
{
    for (const std::string& part : missing)
        if (text)
            *text += "\nThese figures are not whole: " + part + "\n";
    return text;
}

} // namespace

store::Result<std::string> report(store::Reading& reading, Words words, const std::string& period, bool plot)
{
    using namespace std::chrono;
    const auto now = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
    round_period(words, now);
    if (period == "day" && !words.has_from)
        words.query.from = words.query.to - 86400;
    if (!plot)
        return with_missing(tables(reading, words.query), reading.take_missing());
    const bool short_one = words.query.to - words.query.from <= 2 * 86400;
    const auto points = reading.series(words.query, short_one ? store::Step::hour : store::Step::day, {});
    if (!points)
        return points.fault();
    return with_missing(drawn(*points), reading.take_missing());
}

} // namespace api
