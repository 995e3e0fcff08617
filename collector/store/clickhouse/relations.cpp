#include "relations.h"

#include "store/figures.h"

namespace store::clickhouse {

namespace {

struct RollFacts
{
    const char* table;
    const char* columns; ///< behind day, application, generation; `events` is the last
};

constexpr RollFacts g_facts[] = {
    {"roll_active", "hour, version, installation"},
    {"roll_names", "name, is_named, version, installation"},
    {"roll_values", "name, is_named, version, key, type, text, is_fact"},
    {"roll_facts", "key, type, text, version, installation"},
};

const RollFacts& facts_of(Roll roll)
{
    return g_facts[static_cast<size_t>(roll)];
}

// An event's key and its installation, for uniqExact.
constexpr const char* g_event = "cityHash64(installation, batch, line)";
constexpr const char* g_installation = "cityHash64(installation)";

// Division that rounds down, also before 1970: intDiv rounds toward zero.
constexpr const char* g_day_of_hour = "(intDiv(hour + 24000000, 24) - 1000000)";

std::string week_of_day(const std::string& day)
{
    return "(intDiv(" + day + " + 7000003, 7) * 7 - 7000003)";
}

enum class From
{
    rows,   ///< of `events`
    joined, ///< of `events` with one row for each property
    one,    ///< of `events` with the property at `at`
    rolls
};

std::string expression(std::string_view column, From from)
{
    bool is_rolls = from == From::rolls;
    std::string day = is_rolls ? "day" : g_day_of_hour;
    if (column == "at_hour")
        return "toInt64(hour)";
    if (column == "at_day")
        return "toInt64(" + day + ")";
    if (column == "at_week")
        return "toInt64(" + week_of_day(day) + ")";
    if (is_rolls || from == From::rows || (column != "key" && column != "type" && column != "text"))
        return std::string(column);
    return (from == From::one ? "p." : "q.") + std::string(column) + (from == From::one ? "[at]" : "");
}

// "expression AS column, " for each column; empty for none.
std::string selected(const By& by, From from)
{
    std::string text;
    for (size_t begin = 0; begin < by.size();) {
        size_t end = std::min(by.find(", ", begin), by.size());
        std::string column = by.substr(begin, end - begin), value = expression(column, from);
        text += (value == column ? column : value + " AS " + column) + ", ";
        begin = end + 2;
    }
    return text;
}

std::string listed(const By& by)
{
    return by.empty() ? "" : by + ", ";
}

std::string grouped(const By& by)
{
    return by.empty() ? "" : " GROUP BY " + by;
}

bool has(const By& by, std::string_view column)
{
    return (", " + by + ", ").find(", " + std::string(column) + ", ") != std::string::npos;
}

// Which rollup knows the installations; none: those by hour and name are known to rows alone.
std::optional<Roll> roll_of(const Filter& filter, const By& by)
{
    if (!filter.has_name() && !has(by, "name"))
        return Roll::active;
    return has(by, "at_hour") ? std::nullopt : std::optional(Roll::names);
}

struct Arms
{
    std::string rows;                 ///< a condition; "0": nothing can be there
    std::optional<std::string> rolls; ///< a condition
};

Arms arms_of(const Filter& filter, bool with_rolls, bool have_installations)
{
    auto rolls = with_rolls ? filter.rolls(have_installations) : std::nullopt;
    return {rolls ? filter.open_rows() : filter.rows(), rolls};
}

// Both arms as one table: `rows` and `rolls` are SELECTs.
std::string both(const Arms& arms, const std::string& rows, const std::string& rolls)
{
    if (!arms.rolls)
        return "(" + rows + ")";
    return "(" + (arms.rows != "0" ? rows + " UNION ALL " : "") + rolls + ")";
}

std::string and_values(const Values& values, const std::string& prefix)
{
    std::string text;
    if (values.key)
        text += " AND " + prefix + "key=" + quoted(*values.key);
    if (values.are_facts && prefix == "q.")
        text += " AND q.is_fact=1";
    if (values.are_numbers)
        text += " AND " + prefix + "type=1";
    return text;
}

// One property of an event is found in its row; of all of them a row is made for each.
std::string values_of_rows(const std::string& rows, const Values& values, const By& by)
{
    std::string counted = std::string(g_event) + " AS k, toUInt64(0) AS n, " + g_installation + " AS i FROM events ";
    if (!values.key)
        return "SELECT " + selected(by, From::joined) + counted + "ARRAY JOIN p AS q WHERE " + rows +
               and_values(values, "q.");
    return "SELECT " + selected(by, From::one) + counted + "WHERE " + rows + " AND (indexOf(p.key, " +
           quoted(*values.key) + ") AS at) != 0" + (values.are_numbers ? " AND p.type[at]=1" : "");
}

std::string values_of_rolls(const std::string& rolls, const Values& values, const By& by)
{
    Roll roll = values.are_facts ? Roll::facts : Roll::values;
    return "SELECT " + selected(by, From::rolls) + "toUInt64(0) AS k, events AS n, " +
           (values.are_facts ? g_installation : "toUInt64(0)") + " AS i FROM " + table_of(roll) + " WHERE " + rolls +
           and_values(values, "");
}

// What a rollup's rows consist of. Properties past an event's limit are a value of their own.
std::string rolled(Roll roll, const std::string& rows)
{
    std::string columns = facts_of(roll).columns;
    switch (roll) {
    case Roll::active:
    case Roll::names:
        return columns + ", uniqExact(" + g_event + ") FROM events WHERE " + rows + " GROUP BY " + columns;
    case Roll::facts:
        return "q.key AS key, q.type AS type, q.text AS text, version, installation, uniqExact(" +
               std::string(g_event) + ") FROM events ARRAY JOIN p AS q WHERE " + rows + " AND q.is_fact=1 GROUP BY " +
               columns;
    case Roll::values:
        return "name, is_named, version, q.key AS key, q.type AS type, q.text AS text, q.is_fact AS is_fact, "
               "uniqExact(" +
               std::string(g_event) + ") FROM events ARRAY JOIN p AS q WHERE " + rows + " GROUP BY " + columns;
    }
    return {};
}

std::string rolled_others(const std::string& rows)
{
    return "name, is_named, version, '(other)', toUInt8(255), '(other)', toUInt8(0), toUInt64(sum(o)) FROM (SELECT "
           "name, is_named, version, " +
           std::string(g_event) + " AS k, any(others) AS o FROM events WHERE " + rows +
           " AND others != 0 GROUP BY name, is_named, version, k) GROUP BY name, is_named, version";
}

constexpr const char* g_counted = "uniqExactIf(k, k != 0) + sum(n) AS events";

std::string counted(const Filter& filter, const By& by, bool with_installations)
{
    const auto roll = roll_of(filter, by);
    const Arms arms = arms_of(filter, roll.has_value(), true);
    const std::string i = with_installations ? std::string(", ") + g_installation + " AS i" : "";
    const std::string installations = with_installations ? ", uniqExact(i) AS installations" : "";
    // Within one installation its id need not go through the hash.
    const std::string key = has(by, "application, installation") ? "cityHash64(batch, line)" : g_event;
    const std::string rows =
        "SELECT " + selected(by, From::rows) + key + " AS k, toUInt64(0) AS n" + i + " FROM events WHERE " + arms.rows;
    const std::string rolls = arms.rolls ? "SELECT " + selected(by, From::rolls) + "toUInt64(0) AS k, events AS n" + i +
                                               " FROM " + table_of(*roll) + " WHERE " + *arms.rolls
                                         : "";
    return "SELECT " + listed(by) + (arms.rolls ? g_counted : "uniqExact(k) AS events") + installations + " FROM " +
           both(arms, rows, rolls) + grouped(by);
}

} // namespace

const char* table_of(Roll roll)
{
    return facts_of(roll).table;
}

std::string columns_of(Roll roll)
{
    return std::string("day, application, generation, ") + facts_of(roll).columns + ", events";
}

std::string roll_select(Roll roll, Day day, const std::string& application, uint64_t generation)
{
    Query query;
    query.from = int64_t(day) * 86400;
    query.to = query.from + 86400;
    query.application = application;
    const std::string rows = Filter(query, {}, "").rows();
    const std::string begin = "SELECT toInt32(" + std::to_string(day) + "), " + quoted(application) + ", toUInt64(" +
                              std::to_string(generation) + "), ";
    std::string select = begin + rolled(roll, rows);
    if (roll == Roll::values)
        select += " UNION ALL " + begin + rolled_others(rows);
    return select;
}

std::string counts_select(const Filter& filter, const By& by)
{
    return counted(filter, by, true);
}

std::string events_select(const Filter& filter, const By& by)
{
    return counted(filter, by, false);
}

std::string active_relation(const Filter& filter, const By& by)
{
    const auto roll = roll_of(filter, by);
    const Arms arms = arms_of(filter, roll.has_value(), true);
    const std::string rows = "SELECT " + selected(by, From::rows) + "installation FROM events WHERE " + arms.rows;
    const std::string rolls = arms.rolls ? "SELECT " + selected(by, From::rolls) + "installation FROM " +
                                               table_of(*roll) + " WHERE " + *arms.rolls
                                         : "";
    return both(arms, rows, rolls);
}

std::string values_select(const Filter& filter, const Values& values, const By& by)
{
    const bool with_rolls = !has(by, "at_hour") && !(values.are_facts && filter.has_name());
    const Arms arms = arms_of(filter, with_rolls, values.are_facts);
    return "SELECT " + listed(by) + g_counted + (values.are_facts ? ", uniqExact(i) AS installations" : "") + " FROM " +
           both(arms, values_of_rows(arms.rows, values, by),
                arms.rolls ? values_of_rolls(*arms.rolls, values, by) : "") +
           grouped(by);
}

std::string others_select(const Filter& filter, const By& by)
{
    const Arms arms = arms_of(filter, !has(by, "at_hour"), false);
    return "SELECT " + listed(by) + "toUInt64(sum(o)) FROM (SELECT " + selected(by, From::rows) + g_event +
           " AS k, any(others) AS o FROM events WHERE " + arms.rows + " AND others != 0 GROUP BY " + listed(by) + "k)" +
           grouped(by);
}

} // namespace store::clickhouse
