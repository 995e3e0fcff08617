// Questions about what events hold: facts, properties, their numbers and their course.
#include "cluster_reading.h"

#include <charconv>

namespace store::clickhouse {

namespace {

constexpr uint8_t g_other_in_rows = 255;

// As `key, type, text` of a relation.
PropertyKey read_value(RowReader& row)
{
    std::string key(row.text());
    uint8_t type = row.u8();
    return {std::move(key), type == g_other_in_rows ? g_other_type : type, std::string(row.text())};
}

PropertyKey other_value()
{
    return {std::string(g_other), g_other_type, std::string(g_other)};
}

using Events = std::map<PropertyKey, uint64_t>;

constexpr auto g_add = [](auto& sum, const auto& figure) { sum += figure; };

} // namespace

Result<Table<FactRow>> ClusterReading::facts(const Query& query, const Limit& limit)
{
    using Part = std::map<PropertyKey, std::pair<uint64_t, uint64_t>>;
    auto parts = ask<Part>(query, limit, [](Shard& shard, const Filter& filter, Part& part) {
        Values facts;
        facts.are_facts = true;
        shard.rows(values_select(filter, facts, "key, type, text"), [&](RowReader& row) {
            auto& [events, installations] = part[read_value(row)];
            events = row.u64();
            installations = row.u64();
        });
    });
    if (!parts)
        return parts.fault();
    std::vector<FactRow> rows;
    auto all = added(*parts, [](auto& sum, const auto& figures) {
        sum.first += figures.first;
        sum.second += figures.second;
    });
    for (const auto& [place, figures] : all) {
        const auto& [key, type, text] = place;
        rows.push_back({key, owned(type, text), figures.first, figures.second});
    }
    return sorted_table(std::move(rows), query.limit,
                        [](const FactRow& row) { return std::tie(row.fact, row.value.text, row.value.type); });
}

Result<Table<PropertyRow>> ClusterReading::properties(const Query& query, const Limit& limit)
{
    auto parts = ask<Events>(query, limit, [](Shard& shard, const Filter& filter, Events& part) {
        shard.rows(values_select(filter, {}, "key, type, text"), [&](RowReader& row) {
            PropertyKey value = read_value(row);
            part[std::move(value)] += row.u64();
        });
        shard.rows(others_select(filter, ""), [&](RowReader& row) {
            if (uint64_t others = row.u64())
                part[other_value()] += others;
        });
    });
    if (!parts)
        return parts.fault();
    std::vector<PropertyRow> rows;
    for (const auto& [place, events] : added(*parts, g_add)) {
        const auto& [key, type, text] = place;
        rows.push_back({key, owned(type, text), events});
    }
    return sorted_table(std::move(rows), query.limit,
                        [](const PropertyRow& row) { return std::tie(row.key, row.value.text, row.value.type); });
}

// Numbers are counted by their texts and read here: the engine's own way from a text to a number is not exact.
Result<Numbers> ClusterReading::numbers(const Query& query, std::string_view key, const Limit& limit)
{
    using Part = std::vector<double>;
    auto parts = ask<Part>(query, limit, [&](Shard& shard, const Filter& filter, Part& part) {
        Values numbers;
        numbers.key = key;
        numbers.are_numbers = true;
        shard.rows(values_select(filter, numbers, "text"), [&](RowReader& row) {
            std::string_view text = row.text();
            double number = 0;
            std::from_chars(text.data(), text.data() + text.size(), number);
            part.insert(part.end(), row.u64(), number);
        });
    });
    if (!parts)
        return parts.fault();
    Part values;
    for (const Part& part : *parts)
        values.insert(values.end(), part.begin(), part.end());
    return numbers_of(std::move(values));
}

Result<std::vector<PropertyPoint>> ClusterReading::property_series(const Query& query, std::string_view key, Step step,
                                                                   const Limit& limit)
{
    const std::string by = step == Step::hour ? "at_hour" : "at_day";
    const int64_t seconds = step == Step::hour ? 3600 : 86400;
    using Part = std::map<int64_t, Events>;
    auto parts = ask<Part>(query, limit, [&](Shard& shard, const Filter& filter, Part& part) {
        Values values;
        values.key = key;
        shard.rows(values_select(filter, values, by + ", key, type, text"), [&](RowReader& row) {
            Events& events = part[row.i64()];
            PropertyKey value = read_value(row);
            events[std::move(value)] += row.u64();
        });
        if (key == g_other) {
            shard.rows(others_select(filter, by), [&](RowReader& row) {
                Events& events = part[row.i64()];
                events[other_value()] += row.u64();
            });
        }
    });
    if (!parts)
        return parts.fault();
    Course course;
    for (const Part& part : *parts) {
        for (const auto& [at, events] : part) {
            for (const auto& [value, count] : events)
                course.add(at * seconds, value, count);
        }
    }
    return course.most_frequent(query.limit);
}

} // namespace store::clickhouse
