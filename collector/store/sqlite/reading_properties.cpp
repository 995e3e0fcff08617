// Questions about what events hold: facts, properties, their numbers and their course.
#include "reading.h"

#include "store/members.h"

namespace store::sqlite {

namespace {

// The keys and values that rollups know by numbers.
class KnownValues
{
public:
    explicit KnownValues(Database& database)
        : m_find_key(database, "SELECT key FROM properties WHERE id=?"),
          m_find_value(database, "SELECT type, text FROM property_values WHERE property=? AND number=?")
    {}

    const std::string& key(int64_t property)
    {
        auto [key, is_new] = m_keys.try_emplace(property);
        if (is_new)
            key->second = m_find_key.with(property).step() && !m_find_key.is_null(0) ? m_find_key.text(0) : g_other;
        return key->second;
    }

    PropertyKey value(int64_t property, uint32_t number)
    {
        if (number == 0 || !m_find_value.with(property, int64_t(number)).step())
            return {key(property), g_other_type, std::string(g_other)};
        return {key(property), static_cast<int>(m_find_value.integer(0)), std::string(m_find_value.text(1))};
    }

private:
    Statement m_find_key, m_find_value;
    std::unordered_map<int64_t, std::string> m_keys;
};

// Reads the properties of stored events.
class Members
{
public:
    template <class Use>
    void read(const EventOnTheWay& event, Use&& use)
    {
        simdjson::dom::object members;
        if (m_parser.parse(event.members.data(), event.members.size()).get_object().get(members))
            return;
        uint32_t others = store::for_each_property(members, use);
        for (uint32_t i = 0; i < others; ++i)
            use(g_other, std::nullopt);
    }

private:
    simdjson::dom::parser m_parser;
};

PropertyKey property_key(std::string_view key, const std::optional<Value>& value)
{
    if (!value)
        return {std::string(key), g_other_type, std::string(g_other)};
    return {std::string(key), static_cast<int>(value->type), std::string(value->text)};
}

bool is_kind_of(const KindParts* kind, bool is_all_names)
{
    return kind != nullptr && (kind->name == g_all_names) == is_all_names;
}

// Days that only rows can tell of: the edges, or everything.
template <class Use>
void for_each_row(Database& database, const Selection& selection, Use&& use)
{
    auto walk = [&](Seconds from, Seconds to) { for_each_event(database, selection, from, to, true, use); };
    selection.needs_rows() ? walk(selection.from, selection.to) : selection.for_each_edge(walk);
}

// Calls `use(day, property, counts)` for the whole days.
template <class Use>
void for_each_count(Database& database, const Selection& selection, bool is_all_names, Use&& use)
{
    if (selection.needs_rows())
        return;
    Statement rows(database, "SELECT day, kind, property, counts FROM property_days WHERE day>=? AND day<?");
    rows.with(selection.first_day, selection.end_day);
    Counts counts;
    while (rows.step()) {
        if (!is_kind_of(selection.find(rows.integer(1)), is_all_names))
            continue;
        counts.clear();
        unpack_counts(rows.text(3), counts);
        use(rows.integer(0), rows.integer(2), counts);
    }
}

// What rollups know, by property and value number.
using Sums = std::unordered_map<int64_t, std::vector<uint64_t>>;

Sums sums_of(Database& database, const Selection& selection, bool is_all_names)
{
    Sums sums;
    for_each_count(database, selection, is_all_names, [&](int64_t, int64_t property, const Counts& counts) {
        std::vector<uint64_t>& sum = sums[property];
        sum.resize(std::max(sum.size(), counts.size()));
        for (size_t i = 0; i < counts.size(); ++i)
            sum[i] += counts[i];
    });
    return sums;
}

using Found = std::map<PropertyKey, Tally>;

void add_sums(Database& database, const Sums& sums, Found& found)
{
    KnownValues values(database);
    for (const auto& [property, sum] : sums) {
        for (size_t number = 0; number < sum.size(); ++number) {
            if (sum[number] != 0)
                found[values.value(property, static_cast<uint32_t>(number))].events += sum[number];
        }
    }
}

void add_fact_sets(Database& database, const Selection& selection, Found& found)
{
    if (selection.needs_rows() || selection.has_name())
        return;
    Statement rows(database, "SELECT kind, property, value, chunk, bits FROM fact_days WHERE day>=? AND day<?");
    rows.with(selection.first_day, selection.end_day);
    KnownValues values(database);
    std::map<std::pair<int64_t, int64_t>, Tally*> places; // a value stands in many rows
    while (rows.step()) {
        if (!is_kind_of(selection.find(rows.integer(0)), true))
            continue;
        Tally*& tally = places[{rows.integer(1), rows.integer(2)}];
        if (tally == nullptr)
            tally = &found[values.value(rows.integer(1), static_cast<uint32_t>(rows.integer(2)))];
        tally->installations.add(rows.integer(3), rows.text(4));
    }
}

} // namespace

Result<Table<FactRow>> SqliteReading::facts(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        // Facts are kept for all names together: of one name only its rows tell.
        Found found;
        std::set<std::string, std::less<>> names;
        Statement keys(m_database, "SELECT DISTINCT key FROM properties WHERE name=-1 AND key IS NOT NULL");
        while (keys.step())
            names.emplace(keys.text(0));
        Members members;
        auto use = [&](const EventOnTheWay& event) {
            members.read(event, [&](std::string_view key, const std::optional<Value>& value) {
                if (!value || names.find(key) == names.end())
                    return;
                Tally& tally = found[property_key(key, value)];
                ++tally.events;
                tally.installations.add(event.installation);
            });
        };
        if (selection.has_name()) {
            for_each_event(m_database, selection, selection.from, selection.to, true, use);
        } else {
            for_each_row(m_database, selection, use);
            add_sums(m_database, sums_of(m_database, selection, true), found);
            add_fact_sets(m_database, selection, found);
        }
        std::vector<FactRow> rows;
        for (const auto& [place, tally] : found) {
            const auto& [key, type, text] = place;
            rows.push_back({key, owned(type, text), tally.events, tally.installations.count()});
        }
        return sorted_table(std::move(rows), query.limit,
                            [](const FactRow& row) { return std::tie(row.fact, row.value.text, row.value.type); });
    });
}

Result<Table<PropertyRow>> SqliteReading::properties(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Found found;
        Members members;
        for_each_row(m_database, selection, [&](const EventOnTheWay& event) {
            members.read(event, [&](std::string_view key, const std::optional<Value>& value) {
                ++found[property_key(key, value)].events;
            });
        });
        add_sums(m_database, sums_of(m_database, selection, false), found);
        std::vector<PropertyRow> rows;
        for (const auto& [place, tally] : found) {
            const auto& [key, type, text] = place;
            rows.push_back({key, owned(type, text), tally.events});
        }
        return sorted_table(std::move(rows), query.limit,
                            [](const PropertyRow& row) { return std::tie(row.key, row.value.text, row.value.type); });
    });
}

Result<Numbers> SqliteReading::numbers(const Query& query, std::string_view key, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        std::vector<double> values;
        Members members;
        for_each_event(m_database, selection, selection.from, selection.to, true, [&](const EventOnTheWay& event) {
            members.read(event, [&](std::string_view name, const std::optional<Value>& value) {
                if (!value || value->type != ValueType::number || name != key)
                    return;
                double& number = values.emplace_back();
                std::from_chars(value->text.data(), value->text.data() + value->text.size(), number);
            });
        });
        return numbers_of(std::move(values));
    });
}

Result<std::vector<PropertyPoint>> SqliteReading::property_series(const Query& query, std::string_view key, Step step,
                                                                  const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Course course;
        Members members;
        auto use = [&](const EventOnTheWay& event) {
            members.read(event, [&](std::string_view name, const std::optional<Value>& value) {
                Seconds at = step == Step::hour ? hour_of(event.logged_at) * 3600 : day_of(event.logged_at) * 86400;
                if (name == key)
                    course.add(at, property_key(name, value), 1);
            });
        };
        if (step == Step::hour) {
            for_each_event(m_database, selection, selection.from, selection.to, true, use);
        } else {
            KnownValues known(m_database);
            for_each_row(m_database, selection, use);
            for_each_count(m_database, selection, false, [&](int64_t day, int64_t property, const Counts& counts) {
                for (size_t number = 0; known.key(property) == key && number < counts.size(); ++number) {
                    if (counts[number] != 0)
                        course.add(day * 86400, known.value(property, static_cast<uint32_t>(number)), counts[number]);
                }
            });
        }
        return course.most_frequent(query.limit);
    });
}

} // namespace store::sqlite
