#include "tables.h"

#include "client.h"

#include <array>

namespace store::clickhouse {

namespace {

// A replicated table. `tail` is what follows its engine.
struct Table
{
    const char* name;
    const char* columns;
    const char* engine;  ///< Replicated... without its arguments
    const char* version; ///< the column by which rows replace each other, with ", " before it; or nothing
    const char* tail;
};

// Rows of one key are one row, and the highest receipt stays, which is the time of the first one. What merges have not
// come to yet, questions leave out themselves. `stored` is the node's clock and serves the live stream alone.
//
// A null name is '' with is_named 0, for a text '' is another name. p has an event's properties; `others` counts those
// past the limit.
//
// marks: a sum and a number stand for a set of random ids, so that a day is one row however many groups come for it.
// roll_days tells the newest rollup of a day, with the marks that it was made from and how many rows it has.
constexpr Table g_tables[] = {
    {"events",
     "application String, name String, is_named UInt8, hour Int32, installation String, batch FixedString(16), "
     "line UInt64, week UInt16, logged Int64, place UInt32, has_batch UInt8, version String, members String, "
     "p Nested(key String, type UInt8, text String, is_fact UInt8), others UInt32, receipt UInt64, "
     "stored DateTime DEFAULT now()",
     "ReplicatedReplacingMergeTree", ", receipt",
     "PARTITION BY week PRIMARY KEY (application, name, is_named, hour) "
     "ORDER BY (application, name, is_named, hour, installation, batch, line)"},
    {"rejects",
     "installation String, batch FixedString(16), line UInt64, received UInt64, place UInt32, reason String, "
     "text String, receipt UInt64",
     "ReplicatedReplacingMergeTree", ", receipt", "ORDER BY (installation, batch, line)"},
    {"drops", "batch FixedString(16), first UInt32, count UInt32, installation String, received UInt64, receipt UInt64",
     "ReplicatedReplacingMergeTree", ", receipt", "ORDER BY (batch, first, count)"},
    {"uploads",
     "collector FixedString(16), number UInt64, uploads UInt32, differs UInt32, last_received UInt64, receipt UInt64",
     "ReplicatedReplacingMergeTree", ", receipt", "ORDER BY (collector, number)"},
    {"installed",
     "application String, installation String, first AggregateFunction(min, Int64), "
     "latest AggregateFunction(max, String)",
     "ReplicatedAggregatingMergeTree", "", "ORDER BY (application, installation)"},
    {"marks", "day Int32, application String, n UInt64 DEFAULT 1, mark UInt64", "ReplicatedSummingMergeTree", "",
     "ORDER BY (day, application)"},
    {"roll_days",
     "day Int32, application String, generation UInt64, n UInt64, mark UInt64, active UInt64, names UInt64, "
     "values UInt64, facts UInt64, made DateTime DEFAULT now()",
     "ReplicatedReplacingMergeTree", ", generation", "ORDER BY (day, application)"},
    {"roll_active",
     "day Int32, application String, generation UInt64, hour Int32, version String, installation String, "
     "events UInt64",
     "ReplicatedMergeTree", "",
     "PARTITION BY toUInt16(intDiv(day + 3, 7)) ORDER BY (application, day, generation, hour, version, installation)"},
    {"roll_names",
     "day Int32, application String, generation UInt64, name String, is_named UInt8, version String, "
     "installation String, events UInt64",
     "ReplicatedMergeTree", "",
     "PARTITION BY toUInt16(intDiv(day + 3, 7)) "
     "ORDER BY (application, day, generation, name, is_named, version, installation)"},
    {"roll_values",
     "day Int32, application String, generation UInt64, name String, is_named UInt8, version String, key String, "
     "type UInt8, text String, is_fact UInt8, events UInt64",
     "ReplicatedMergeTree", "",
     "PARTITION BY toUInt16(intDiv(day + 3, 7)) "
     "ORDER BY (application, day, generation, name, is_named, key, type, text)"},
    {"roll_facts",
     "day Int32, application String, generation UInt64, key String, type UInt8, text String, version String, "
     "installation String, events UInt64",
     "ReplicatedMergeTree", "",
     "PARTITION BY toUInt16(intDiv(day + 3, 7)) "
     "ORDER BY (application, day, generation, key, type, text, version, installation)"},
    {"lease", "name String, holder UInt64, until DateTime, taken UInt64", "ReplicatedReplacingMergeTree", ", taken",
     "ORDER BY (name, holder)"},
    {"retired", "week UInt16", "ReplicatedReplacingMergeTree", "", "ORDER BY week"},
    {"forgotten", "hash FixedString(32)", "ReplicatedReplacingMergeTree", "", "ORDER BY hash"},
    {"logouts", "session FixedString(32), until DateTime", "ReplicatedReplacingMergeTree", "", "ORDER BY session"},
};

constexpr Table g_meta = {"meta", "name String, value String, changed UInt64", "ReplicatedReplacingMergeTree",
                          ", changed", "ORDER BY name"};

// `latest` is the last time, as 12 digits that order as it does, with the version that logged then: of several in one
// second the greatest, so that it is the same whatever came first.
//
// Each row of an insert passes through it into `installed`, repeated ones too, which changes nothing there.
const char* const g_view = "CREATE MATERIALIZED VIEW IF NOT EXISTS installed_from_events TO installed AS "
                           "SELECT application, installation, minState(logged) AS first, "
                           "maxState(concat(toString(logged + 200000000000), version)) AS latest FROM events "
                           "GROUP BY application, installation";

std::string statement(const Table& table, const Place& place)
{
    // The number after the database is for a form of these tables that could not live beside this one.
    std::string path =
        "/analytics/" + place.layout.database + "/1/" + std::to_string(place.shard + 1) + "/" + table.name;
    return std::string("CREATE TABLE IF NOT EXISTS ") + table.name + " (" + table.columns +
           ") ENGINE = " + table.engine + "(" + quoted(path) + ", " + quoted(place.node.name()) + table.version + ") " +
           table.tail;
}

using Step = std::vector<std::string> (*)(const Place& place);
constexpr std::array<Step, g_schema - 1> g_steps{};

} // namespace

std::vector<std::string> tables(const Place& place)
{
    std::vector<std::string> statements;
    for (const Table& table : g_tables)
        statements.push_back(statement(table, place));
    statements.push_back(g_view);
    return statements;
}

std::vector<std::string> step_from(int version, const Place& place)
{
    return g_steps.at(static_cast<size_t>(version - 1))(place);
}

std::string meta_table(const Place& place)
{
    return statement(g_meta, place);
}

} // namespace store::clickhouse
