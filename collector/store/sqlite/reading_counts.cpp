// Questions whose answers are counts: summary, series, names, versions, retention.
#include "reading.h"

#include <algorithm>
#include <map>
#include <set>

namespace store::sqlite {

namespace {

// Installations whose first event lies in the period, by the first day of a span: of the filtered application, or of
// all.
template <class SpanOf>
std::map<int64_t, Installations> new_ones(Database& database, const Selection& selection, SpanOf&& span_of)
{
    std::map<int64_t, Installations> spans;
    Statement rows(database, selection.application() != 0
                                 ? "SELECT installation, first_seen FROM installed WHERE application=? "
                                   "AND first_seen>=? AND first_seen<?"
                                 : "SELECT installation, min(first_seen) AS first FROM installed WHERE ?=0 "
                                   "GROUP BY installation HAVING first>=? AND first<?");
    rows.with(selection.application(), selection.from, selection.to);
    while (rows.step()) {
        if (selection.installation() == 0 || rows.integer(0) == selection.installation())
            spans[span_of(rows.integer(1))].add(rows.integer(0));
    }
    return spans;
}

// Rejects and dropped lines by the start of a step.
template <class Use>
void for_each_loss(Database& database, const Selection& selection, Use&& use)
{
    Statement rows(database, "SELECT hour, sum(rejects), sum(dropped) FROM losses WHERE hour>=?1 AND hour<?2 "
                             "AND (?3=0 OR installation=?3) GROUP BY hour");
    rows.with(hour_of(selection.from), hour_of(selection.to + 3599), selection.installation());
    while (rows.step())
        use(rows.integer(0) * 3600, static_cast<uint64_t>(rows.integer(1)), static_cast<uint64_t>(rows.integer(2)));
}

// Groups by small numbers that stand for pairs of texts.
class Pairs
{
public:
    int64_t number_of(int64_t first, int64_t second)
    {
        auto [number, is_new] = m_numbers.try_emplace({first, second}, static_cast<int64_t>(m_pairs.size()));
        if (is_new)
            m_pairs.push_back({first, second});
        return number->second;
    }
    const std::pair<int64_t, int64_t>& operator[](int64_t number) const { return m_pairs[static_cast<size_t>(number)]; }

private:
    std::map<std::pair<int64_t, int64_t>, int64_t> m_numbers;
    std::vector<std::pair<int64_t, int64_t>> m_pairs;
};

// Without events a tally is one of a rollup that outlived the others, as after a deletion.
template <class Row, class MakeRow>
std::vector<Row> rows_of(const Tallies& tallies, MakeRow&& make_row)
{
    std::vector<Row> rows;
    for (const auto& [group, tally] : tallies) {
        if (tally.events == 0)
            continue;
        Row row = make_row(group);
        row.events = tally.events;
        row.installations = tally.installations.count();
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace

Result<Summary> SqliteReading::summary(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Summary summary;
        std::set<std::pair<int64_t, int64_t>> versions;
        std::set<int64_t> names;
        Tallies all = tally(m_database, selection, {[&](const KindParts& kind, Seconds) {
                                versions.insert({kind.application, kind.version});
                                if (kind.name != g_all_names)
                                    names.insert(kind.name);
                                return 0;
                            }});
        const Tally& tally = all[0];
        summary.events = tally.events;
        summary.installations = tally.installations.count();
        summary.versions = versions.size();
        summary.names = names.size();
        for (const auto& [span, fresh] : new_ones(m_database, selection, [](Seconds) { return 0; }))
            summary.new_installations += fresh.count_common(tally.installations);
        for_each_loss(m_database, selection, [&](Seconds, uint64_t rejects, uint64_t dropped) {
            summary.rejects += rejects;
            summary.dropped += dropped;
        });
        return summary;
    });
}

Result<std::vector<Point>> SqliteReading::series(const Query& query, Step step, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        auto start_of = [&](Seconds at) { return step == Step::hour ? hour_of(at) * 3600 : day_of(at) * 86400; };
        Grouping grouping{[&](const KindParts&, Seconds at) { return start_of(at); }, false, step == Step::hour};
        std::map<Seconds, Point> points;
        const auto fresh = new_ones(m_database, selection, start_of);
        for (const auto& [at, tally] : tally(m_database, selection, grouping)) {
            points[at].events = tally.events;
            points[at].installations = tally.installations.count();
            if (const auto found = fresh.find(at); found != fresh.end())
                points[at].new_installations = found->second.count_common(tally.installations);
        }
        for_each_loss(m_database, selection, [&](Seconds at, uint64_t rejects, uint64_t dropped) {
            points[start_of(at)].rejects += rejects;
            points[start_of(at)].dropped += dropped;
        });
        std::vector<Point> rows;
        for (auto& [at, point] : points) {
            point.at = at;
            if (point.events + point.installations + point.rejects + point.dropped != 0)
                rows.push_back(point);
        }
        return rows;
    });
}

Result<Table<NameRow>> SqliteReading::names(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Texts texts(m_database);
        Grouping grouping{[](const KindParts& kind, Seconds) { return kind.name; }, true, false};
        auto rows = rows_of<NameRow>(tally(m_database, selection, grouping), [&](int64_t name) {
            NameRow row;
            row.name = texts.name(name);
            return row;
        });
        return sorted_table(std::move(rows), query.limit, [](const NameRow& row) { return row.name; });
    });
}

Result<Table<VersionRow>> SqliteReading::versions(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Texts texts(m_database);
        Pairs pairs;
        Grouping grouping{
            [&](const KindParts& kind, Seconds) { return pairs.number_of(kind.application, kind.version); }};
        auto rows = rows_of<VersionRow>(tally(m_database, selection, grouping), [&](int64_t number) {
            VersionRow row;
            row.application = texts[pairs[number].first];
            row.version = texts[pairs[number].second];
            return row;
        });
        return sorted_table(std::move(rows), query.limit,
                            [](const VersionRow& row) { return std::tie(row.application, row.version); });
    });
}

Result<std::vector<RetentionRow>> SqliteReading::retention(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        auto week = [](Seconds at) { return monday_of(day_of(at)); };
        Tallies active =
            tally(m_database, selection, {[&](const KindParts&, Seconds at) { return week(at); }, false, false});
        int64_t last_week = std::numeric_limits<int64_t>::min();
        for (const auto& [at, tally] : active)
            last_week = std::max(last_week, at);
        std::vector<RetentionRow> rows;
        for (const auto& [first_week, fresh] : new_ones(m_database, selection, week)) {
            RetentionRow row;
            row.week = first_week * 86400;
            row.installations = fresh.count();
            for (int64_t at = first_week; at <= last_week; at += 7)
                row.active.push_back(fresh.count_common(active[at].installations));
            rows.push_back(std::move(row));
        }
        return rows;
    });
}

} // namespace store::sqlite
