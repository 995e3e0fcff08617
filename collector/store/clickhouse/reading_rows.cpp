// Questions whose answers are rows of events, installations and rejects.
#include "cluster_reading.h"
#include "event_rows.h"

#include <set>

namespace store::clickhouse {

namespace {

constexpr size_t g_most_text = 100000; // bytes of a list in a question: the engine reads 256 KiB

std::string limited(const char* order, size_t limit)
{
    return std::string(" ORDER BY ") + order + " LIMIT " + std::to_string(std::max<size_t>(limit, 1));
}

// The installations that a shard shows at most, without what only `installed` knows.
void read_installations(Shard& shard, const Filter& filter, size_t limit, std::vector<InstallationRow>& rows)
{
    shard.rows("SELECT application, installation, events FROM (" + events_select(filter, "application, installation") +
                   ")" + limited("events DESC, installation, application", limit),
               [&](RowReader& row) {
                   InstallationRow& one = rows.emplace_back();
                   one.application = row.text();
                   one.installation = row.text();
                   one.events = row.u64();
               });
}

using Places = std::map<std::pair<std::string, std::string>, InstallationRow*>; // by application and installation

// `latest` is the last time in 12 digits, moved so that it is never negative, and the version that logged then.
constexpr size_t g_digits = 12;
constexpr int64_t g_moved = 200000000000;

void read_installed(Shard& shard, const Places& places, const std::string& list)
{
    shard.rows("SELECT application, installation, minMerge(first), maxMerge(latest) FROM installed WHERE "
               "(application, installation) IN (" +
                   list + ") GROUP BY application, installation",
               [&](RowReader& row) {
                   std::string application(row.text());
                   auto place = places.find({std::move(application), std::string(row.text())});
                   int64_t first = row.i64();
                   std::string_view latest = row.text();
                   if (place == places.end() || latest.size() < g_digits)
                       return;
                   place->second->first_seen = first;
                   place->second->last_seen = std::stoll(std::string(latest.substr(0, g_digits))) - g_moved;
                   place->second->version = latest.substr(g_digits);
               });
}

void add_installed(Shard& shard, std::vector<InstallationRow>& rows)
{
    Places places;
    for (InstallationRow& row : rows)
        places[{row.application, row.installation}] = &row;
    std::string list;
    for (size_t i = 0; i < rows.size(); ++i) {
        list += (list.empty() ? "(" : ",(") + quoted(rows[i].application) + "," + quoted(rows[i].installation) + ")";
        if (list.size() > g_most_text || i + 1 == rows.size()) {
            read_installed(shard, places, list);
            list.clear();
        }
    }
}

// The newest events of a shard. The time since which there are enough of them is looked for first, in one column, so
// that whole rows are read of a short time alone. Repetitions of an event have its time, so all of them are in there.
void read_newest(Shard& shard, const Filter& filter, size_t limit, std::vector<Received>& rows)
{
    const std::string meant = filter.rows();
    for (size_t looked_at = limit + limit / 4 + 16; shard.ok(); looked_at *= 4) {
        Seconds since = filter.from;
        size_t found = 0;
        shard.rows("SELECT min(logged), count() FROM (SELECT logged FROM events WHERE " + meant +
                       limited("logged DESC", looked_at) + ")",
                   [&](RowReader& row) {
                       since = row.i64();
                       found = row.u64();
                   });
        rows.clear();
        if (found == 0)
            return;
        shard.rows(std::string("SELECT ") + g_event_columns + " FROM (SELECT " + g_event_columns +
                       " FROM events WHERE " + meant + Filter::between(since, filter.to) +
                       " ORDER BY receipt DESC LIMIT 1 BY " + g_event_place + ")" +
                       limited("logged DESC, receipt, batch DESC, place DESC, line DESC", limit),
                   [&](RowReader& row) { rows.push_back(read_event(row)); });
        if (rows.size() >= limit || found < looked_at)
            return;
    }
}

// A funnel as SQL. A name's events are told apart, and kept in order, by one number: their second times a million, and
// which one of that second they are. A step is reached by the first event of its name that is not before the last
// step's second, nor one that the same name was reached by before.
class Funnel
{
public:
    Funnel(const Filter& filter, std::span<const std::string> names) : m_names(names)
    {
        std::string list;
        for (size_t i = 0; i < names.size(); ++i)
            list += (i == 0 ? "" : ",") + quoted(names[i]);
        m_events = " FROM events WHERE " + filter.rows() + " AND is_named=1 AND name IN (" + list + ")";
        m_are_different = std::set(names.begin(), names.end()).size() == names.size();
    }

    std::string select() const
    {
        std::string counts;
        for (size_t i = 0; i < m_names.size(); ++i)
            counts += (i == 0 ? "" : ", ") + std::string("countIf(t") + std::to_string(i) + " < " + g_never + ")";
        return "SELECT " + counts + " FROM (" + reached(m_names.size()) + ")";
    }

private:
    static constexpr const char* g_never = "9000000000000000000";

    // The first `steps` steps: an installation's numbers n0, n1 ... by step, and when each was reached: t0, t1 ...
    std::string reached(size_t steps) const
    {
        if (steps == 0)
            return m_are_different ? moments() : numbers();
        const std::string i = std::to_string(steps - 1);
        std::string after;
        if (steps > 1)
            after = "x >= intDiv(t" + std::to_string(steps - 2) +
                    " + 100000000000000000, 1000000) * 1000000 - 100000000000000000";
        for (size_t step = steps - 1; step-- > 0;) {
            if (m_names[step] == m_names[steps - 1]) {
                after += " AND x > t" + std::to_string(step);
                break;
            }
        }
        std::string possible = after.empty() ? "n" + i : "arrayFilter(x -> " + after + ", n" + i + ")";
        return "SELECT *, arrayReduce('min', arrayPushBack(" + possible + ", toInt64(" + g_never + "))) AS t" + i +
               " FROM (" + reached(steps - 1) + ")";
    }

    std::string moments() const
    {
        std::string moments;
        for (size_t i = 0; i < m_names.size(); ++i)
            moments += std::string(i == 0 ? "" : ", ") +
                       "groupArrayIf(logged * toInt64(1000000), name=" + quoted(m_names[i]) + ") AS n" +
                       std::to_string(i);
        return "SELECT " + moments + m_events + " GROUP BY installation";
    }

    std::string numbers() const
    {
        std::string sorted, numbered;
        for (size_t i = 0; i < m_names.size(); ++i) {
            std::string number = std::to_string(i), comma = i == 0 ? "" : ", ";
            sorted += comma + "arraySort(groupArrayIf(at, name=" + quoted(m_names[i]) + ")) AS s" + number;
            numbered += comma + "arrayMap((x, n) -> toInt64(x * 1000000 + n), s" + number + ", arrayEnumerateUniq(s" +
                        number + ")) AS n" + number;
        }
        return "SELECT " + numbered + " FROM (SELECT " + sorted +
               " FROM (SELECT installation, name, any(logged) AS at" + m_events +
               " GROUP BY installation, name, cityHash64(application, batch, line)) GROUP BY installation)";
    }

    const std::span<const std::string> m_names;
    std::string m_events; ///< FROM and WHERE
    bool m_are_different; ///< no name stands for two steps
};

} // namespace

Result<Table<InstallationRow>> ClusterReading::installations(const Query& query, const Limit& limit)
{
    struct Part
    {
        uint64_t total = 0;
        std::vector<InstallationRow> rows;
    };
    auto parts = ask<Part>(query, limit, [&](Shard& shard, const Filter& filter, Part& part) {
        shard.rows("SELECT uniqExact(cityHash64(application, installation)) FROM " +
                       active_relation(filter, "application"),
                   [&](RowReader& row) { part.total = row.u64(); });
        read_installations(shard, filter, query.limit, part.rows);
        add_installed(shard, part.rows);
    });
    if (!parts)
        return parts.fault();
    std::vector<InstallationRow> rows;
    uint64_t total = 0;
    for (Part& part : *parts) {
        total += part.total;
        rows.insert(rows.end(), std::make_move_iterator(part.rows.begin()), std::make_move_iterator(part.rows.end()));
    }
    auto table = sorted_table(std::move(rows), query.limit,
                              [](const InstallationRow& row) { return std::tie(row.installation, row.application); });
    table.total = total;
    return table;
}

Result<std::vector<EventRow>> ClusterReading::timeline(const Query& query, const Limit& limit)
{
    using Part = std::vector<Received>;
    const size_t most = std::max<size_t>(query.limit, 1);
    auto parts = ask<Part>(
        query, limit, [&](Shard& shard, const Filter& filter, Part& part) { read_newest(shard, filter, most, part); },
        Days::open);
    if (!parts)
        return parts.fault();
    Part all;
    for (Part& part : *parts)
        all.insert(all.end(), std::make_move_iterator(part.begin()), std::make_move_iterator(part.end()));
    std::sort(all.begin(), all.end(), [](const Received& a, const Received& b) {
        return a.row.logged_at != b.row.logged_at ? a.row.logged_at > b.row.logged_at : b < a;
    });
    std::vector<EventRow> rows;
    for (size_t i = 0; i < std::min(all.size(), most); ++i)
        rows.push_back(std::move(all[i].row));
    return rows;
}

Result<std::vector<uint64_t>> ClusterReading::funnel(const Query& query, std::span<const std::string> names,
                                                     const Limit& limit)
{
    std::vector<uint64_t> reached(names.size());
    if (names.empty())
        return reached;
    Query of_all_names = query;
    of_all_names.name.reset();
    using Part = std::vector<uint64_t>;
    auto parts = ask<Part>(
        of_all_names, limit,
        [&](Shard& shard, const Filter& filter, Part& part) {
            shard.rows(Funnel(filter, names).select(), [&](RowReader& row) {
                for (size_t i = 0; i < names.size(); ++i)
                    part.push_back(row.u64());
            });
        },
        Days::open);
    if (!parts)
        return parts.fault();
    for (const Part& part : *parts) {
        for (size_t i = 0; i < part.size(); ++i)
            reached[i] += part[i];
    }
    return reached;
}

} // namespace store::clickhouse
