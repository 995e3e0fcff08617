// Questions whose answers are counts: summary, series, names, versions, retention.
#include "cluster_reading.h"

namespace store::clickhouse {

namespace {

struct Counts
{
    uint64_t events = 0, installations = 0;
    void operator+=(const Counts& other)
    {
        events += other.events;
        installations += other.installations;
    }
};

Counts read_counts(RowReader& row)
{
    Counts counts;
    counts.events = row.u64();
    counts.installations = row.u64();
    return counts;
}

constexpr auto g_add = [](auto& sum, const auto& figure) { sum += figure; };

// What stands for a moment in a question about steps.
struct StepWords
{
    const char* by;   ///< the column of a relation
    const char* seen; ///< the same of a time in seconds
    int64_t seconds;  ///< how much one more of it is
};

const StepWords& words_of(Step step)
{
    static constexpr StepWords words[] = {{"at_hour", "intDiv(seen + 86400000000, 3600) - 24000000", 3600},
                                          {"at_day", "intDiv(seen + 86400000000, 86400) - 1000000", 86400}};
    return words[step == Step::day];
}

// New installations among those that a query means, by a step; `is_any` when all that are new are meant.
std::string fresh_by_step(const Filter& filter, const StepWords& words)
{
    if (filter.is_of_all_events())
        return std::string("SELECT toInt64(") + words.seen + ") AS at, count() FROM (" + fresh_select(filter) +
               ") GROUP BY at";
    return std::string("SELECT ") + words.by + ", uniqExact(installation) FROM " + active_relation(filter, words.by) +
           " WHERE (" + words.by + ", installation) IN (SELECT toInt64(" + words.seen + "), installation FROM (" +
           fresh_select(filter) + ")) GROUP BY " + words.by;
}

std::string fresh_in_all(const Filter& filter)
{
    if (filter.is_of_all_events())
        return "SELECT count() FROM (" + fresh_select(filter) + ")";
    return "SELECT uniqExact(installation) FROM " + active_relation(filter, "") +
           " WHERE installation IN (SELECT installation FROM (" + fresh_select(filter) + "))";
}

std::string different(const Filter& filter, const By& by)
{
    return "SELECT DISTINCT " + by + " FROM " + active_relation(filter, by);
}

} // namespace

Result<Summary> ClusterReading::summary(const Query& query, const Limit& limit)
{
    struct Part
    {
        Counts counts;
        uint64_t fresh = 0;
        std::set<std::pair<std::string, std::string>> versions;
        std::set<std::pair<uint8_t, std::string>> names;
        LossesPart lost;
    };
    auto parts = ask<Part>(query, limit, [&](Shard& shard, const Filter& filter, Part& part) {
        shard.rows(counts_select(filter, ""), [&](RowReader& row) { part.counts = read_counts(row); });
        shard.rows(fresh_in_all(filter), [&](RowReader& row) { part.fresh = row.u64(); });
        shard.rows(different(filter, "application, version"), [&](RowReader& row) {
            std::string application(row.text());
            part.versions.insert({std::move(application), std::string(row.text())});
        });
        shard.rows(different(filter, "is_named, name"), [&](RowReader& row) {
            uint8_t is_named = row.u8();
            part.names.insert({is_named, std::string(row.text())});
        });
        read_losses(shard, filter, part.lost);
    });
    if (!parts)
        return parts.fault();
    Part all;
    for (Part& part : *parts) {
        all.counts += part.counts;
        all.fresh += part.fresh;
        all.versions.merge(part.versions);
        all.names.merge(part.names);
    }
    auto lost = losses(*parts, limit);
    if (!lost)
        return lost.fault();
    Summary summary{
        all.counts.events, all.counts.installations, all.fresh, all.versions.size(), all.names.size(), 0, 0};
    for (const auto& [hour, loss] : *lost) {
        summary.rejects += loss.rejects;
        summary.dropped += loss.dropped;
    }
    return summary;
}

Result<std::vector<Point>> ClusterReading::series(const Query& query, Step step, const Limit& limit)
{
    const StepWords& words = words_of(step);
    using Points = std::map<int64_t, Point>;
    struct Part
    {
        Points points;
        LossesPart lost;
    };
    auto parts = ask<Part>(query, limit, [&](Shard& shard, const Filter& filter, Part& part) {
        shard.rows(counts_select(filter, words.by), [&](RowReader& row) {
            Point& point = part.points[row.i64()];
            point.events = row.u64();
            point.installations = row.u64();
        });
        shard.rows(fresh_by_step(filter, words), [&](RowReader& row) {
            Point& point = part.points[row.i64()];
            point.new_installations = row.u64();
        });
        read_losses(shard, filter, part.lost);
    });
    if (!parts)
        return parts.fault();
    Points points;
    for (Part& part : *parts) {
        for (const auto& [at, more] : part.points) {
            points[at].events += more.events;
            points[at].installations += more.installations;
            points[at].new_installations += more.new_installations;
        }
    }
    auto lost = losses(*parts, limit);
    if (!lost)
        return lost.fault();
    for (const auto& [hour, loss] : *lost) {
        Point& point = points[step == Step::hour ? hour : day_of(hour * 3600)];
        point.rejects += loss.rejects;
        point.dropped += loss.dropped;
    }
    std::vector<Point> rows;
    for (auto& [at, point] : points) {
        point.at = at * words.seconds;
        if (point.events + point.installations + point.rejects + point.dropped != 0)
            rows.push_back(point);
    }
    return rows;
}

Result<Table<NameRow>> ClusterReading::names(const Query& query, const Limit& limit)
{
    using Part = std::map<std::optional<std::string>, Counts>;
    auto parts = ask<Part>(query, limit, [](Shard& shard, const Filter& filter, Part& part) {
        shard.rows(counts_select(filter, "is_named, name"), [&](RowReader& row) {
            bool is_named = row.u8() != 0;
            std::string_view name = row.text();
            part[is_named ? std::optional<std::string>(name) : std::nullopt] += read_counts(row);
        });
    });
    if (!parts)
        return parts.fault();
    std::vector<NameRow> rows;
    for (const auto& [name, counts] : added(*parts, g_add))
        rows.push_back({name, counts.events, counts.installations});
    return sorted_table(std::move(rows), query.limit, [](const NameRow& row) { return row.name; });
}

Result<Table<VersionRow>> ClusterReading::versions(const Query& query, const Limit& limit)
{
    using Part = std::map<std::pair<std::string, std::string>, Counts>;
    auto parts = ask<Part>(query, limit, [](Shard& shard, const Filter& filter, Part& part) {
        shard.rows(counts_select(filter, "application, version"), [&](RowReader& row) {
            std::string application(row.text()), version(row.text());
            part[{std::move(application), std::move(version)}] += read_counts(row);
        });
    });
    if (!parts)
        return parts.fault();
    std::vector<VersionRow> rows;
    for (const auto& [place, counts] : added(*parts, g_add))
        rows.push_back({place.first, place.second, counts.events, counts.installations});
    return sorted_table(std::move(rows), query.limit,
                        [](const VersionRow& row) { return std::tie(row.application, row.version); });
}

Result<std::vector<RetentionRow>> ClusterReading::retention(const Query& query, const Limit& limit)
{
    // By the Monday of the first event, as a day's number.
    struct Week
    {
        uint64_t installations = 0;
        std::map<int64_t, uint64_t> active; ///< by the Monday of the later week
    };
    struct Part
    {
        std::map<int64_t, Week> weeks;
        int64_t last = std::numeric_limits<int64_t>::min();
    };
    auto parts = ask<Part>(query, limit, [&](Shard& shard, const Filter& filter, Part& part) {
        const std::string fresh =
            "SELECT installation, toInt64(intDiv(intDiv(seen + 86400000000, 86400) + 6000003, 7) * "
            "7 - 7000003) AS first_week FROM (" +
            fresh_select(filter) + ")";
        shard.rows("SELECT first_week, count() FROM (" + fresh + ") GROUP BY first_week", [&](RowReader& row) {
            Week& week = part.weeks[row.i64()];
            week.installations = row.u64();
        });
        shard.rows("SELECT first_week, at_week, count() FROM (SELECT DISTINCT at_week, installation FROM " +
                       active_relation(filter, "at_week") + ") ANY INNER JOIN (" + fresh +
                       ") USING (installation) GROUP BY first_week, at_week",
                   [&](RowReader& row) {
                       Week& week = part.weeks[row.i64()];
                       int64_t at = row.i64();
                       week.active[at] = row.u64();
                   });
        shard.rows("SELECT max(at_week), count() FROM " + active_relation(filter, "at_week"), [&](RowReader& row) {
            int64_t last = row.i64();
            if (row.u64() != 0)
                part.last = last;
        });
    });
    if (!parts)
        return parts.fault();
    Part all;
    for (Part& part : *parts) {
        all.last = std::max(all.last, part.last);
        for (const auto& [first, week] : part.weeks) {
            all.weeks[first].installations += week.installations;
            for (const auto& [at, count] : week.active)
                all.weeks[first].active[at] += count;
        }
    }
    std::vector<RetentionRow> rows;
    for (auto& [first, week] : all.weeks) {
        RetentionRow& row = rows.emplace_back();
        row.week = first * 86400;
        row.installations = week.installations;
        for (int64_t at = first; at <= all.last; at += 7)
            row.active.push_back(week.active[at]);
    }
    return rows;
}

} // namespace store::clickhouse
