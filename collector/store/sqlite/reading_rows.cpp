// Questions whose answers are rows of events, installations and rejects.
#include "reading.h"

#include "schema.h"

#include "store/members.h"

#include <filesystem>

namespace store::sqlite {

namespace {

constexpr size_t g_most_looked_at = 50000; // rows that one call of receipts() passes over

// Rows as they are shown, from their ids.
class EventRows
{
public:
    explicit EventRows(Database& database)
        : m_texts(database),
          m_event(database, "SELECT installations.text, kinds.application, kinds.version, kinds.name, logged_at, "
                            "received_at, batch, line, members FROM events JOIN uploads ON uploads.id=upload "
                            "JOIN kinds ON kinds.id=kind JOIN installations ON installations.id=installation "
                            "WHERE events.id=?")
    {}

    void append(int64_t id, std::vector<EventRow>& rows)
    {
        if (!m_event.with(id).step())
            return;
        EventRow& row = rows.emplace_back();
        row.installation = m_event.text(0);
        row.application = m_texts[m_event.integer(1)];
        row.version = m_texts[m_event.integer(2)];
        row.name = m_texts.name(m_event.integer(3));
        row.logged_at = m_event.integer(4);
        row.received_at = m_event.integer(5);
        if (!m_event.is_null(6))
            std::copy_n(m_event.text(6).begin(), row.batch.emplace().size(), row.batch->begin());
        row.line = static_cast<uint32_t>(m_event.integer(7));
        row.members = m_event.text(8);
    }

private:
    Texts m_texts;
    Statement m_event;
};

// The newest events by time, the latest receipt first among equals.
class Newest
{
public:
    explicit Newest(size_t limit) : m_limit(std::max<size_t>(limit, 1)) {}

    void add(Seconds logged_at, int64_t id)
    {
        m_places.push_back({logged_at, id});
        if (m_places.size() >= 4 * m_limit + 1000)
            cut();
    }
    // Whether an event of this time could still be among them.
    bool wants(Seconds logged_at)
    {
        cut();
        return m_places.size() < m_limit || m_places.back().first <= logged_at;
    }
    const std::vector<std::pair<Seconds, int64_t>>& sorted()
    {
        cut();
        return m_places;
    }

private:
    void cut()
    {
        std::sort(m_places.rbegin(), m_places.rend());
        m_places.resize(std::min(m_places.size(), m_limit));
    }

    size_t m_limit;
    std::vector<std::pair<Seconds, int64_t>> m_places;
};

void collect_newest(Database& database, const Selection& selection, Newest& newest)
{
    auto use = [&](const EventOnTheWay& event) { newest.add(event.logged_at, event.id); };
    if (selection.installation() != 0) {
        for_each_event(database, selection, selection.from, selection.to, false, use);
        return;
    }
    Statement blocks(database, "SELECT block, last FROM blocks WHERE last>=? AND first<? ORDER BY last DESC");
    Statement rows(database, "SELECT id, kind, logged_at, members FROM events WHERE id BETWEEN ? AND ?");
    FactFilter fact(selection.fact());
    blocks.with(selection.from, selection.to);
    while (blocks.step() && newest.wants(blocks.integer(1))) {
        int64_t first = blocks.integer(0) << g_block_bits;
        rows.with(first, first + (1 << g_block_bits) - 1);
        while (rows.step()) {
            Seconds at = rows.integer(2);
            if (at >= selection.from && at < selection.to && selection.find(rows.integer(1)) != nullptr &&
                (!fact || fact.admits(rows.text(3))))
                newest.add(at, rows.integer(0));
        }
    }
}

// One installation on its way through the steps of a funnel.
struct Passage
{
    int64_t installation;
    Seconds logged_at;
    int64_t id, name;
    bool operator<(const Passage& other) const
    {
        return std::tie(installation, logged_at, id) < std::tie(other.installation, other.logged_at, other.id);
    }
};

// How many of the names an installation reached, each by an event of its own: the earliest that is not before the last.
size_t steps_reached(std::span<Passage> events, const std::vector<int64_t>& names)
{
    std::vector<bool> used(events.size());
    Seconds since = std::numeric_limits<Seconds>::min();
    for (size_t step = 0; step < names.size(); ++step) {
        size_t at = 0;
        while (at < events.size() && (used[at] || events[at].name != names[step] || events[at].logged_at < since))
            ++at;
        if (at == events.size())
            return step;
        used[at] = true;
        since = events[at].logged_at;
    }
    return names.size();
}

uint64_t size_of(const std::string& path)
{
    std::error_code error;
    auto size = std::filesystem::file_size(path, error);
    return error ? 0 : size;
}

} // namespace

SqliteReading::SqliteReading(const std::string& path, std::shared_ptr<Readers> readers)
    : m_path(path), m_spReaders(std::move(readers))
{
    m_database.open(path, Access::read, std::chrono::milliseconds(1000));
    m_spReaders->add(m_database);
}

SqliteReading::~SqliteReading()
{
    m_spReaders->remove(m_database);
}

Result<Table<InstallationRow>> SqliteReading::installations(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        std::map<std::pair<int64_t, int64_t>, uint64_t> counts; // by installation and application
        std::unordered_map<int64_t, std::pair<int64_t, uint64_t*>> latest;
        for_each_event(m_database, selection, selection.from, selection.to, false, [&](const EventOnTheWay& event) {
            auto& [application, count] = latest[event.installation]; // most have but one application
            if (count == nullptr || application != event.kind->application) {
                application = event.kind->application;
                count = &counts[{event.installation, application}];
            }
            ++*count;
        });
        Texts texts(m_database);
        Statement find(m_database, "SELECT text, first_seen, last_seen, version FROM installed JOIN installations "
                                   "ON installations.id=installation WHERE installation=? AND application=?");
        std::vector<InstallationRow> rows;
        for (const auto& [place, events] : counts) {
            if (!find.with(place.first, place.second).step())
                continue;
            rows.push_back({std::string(find.text(0)), texts[place.second], texts[find.integer(3)], find.integer(1),
                            find.integer(2), events});
        }
        return sorted_table(std::move(rows), query.limit,
                            [](const InstallationRow& row) { return std::tie(row.installation, row.application); });
    });
}

Result<std::vector<EventRow>> SqliteReading::timeline(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Newest newest(query.limit);
        collect_newest(m_database, selection, newest);
        EventRows events(m_database);
        std::vector<EventRow> rows;
        for (const auto& [logged_at, id] : newest.sorted())
            events.append(id, rows);
        return rows;
    });
}

Result<std::vector<uint64_t>> SqliteReading::funnel(const Query& query, std::span<const std::string> names,
                                                    const Limit& limit)
{
    return ask(limit, [&] {
        Query of_all_names = query;
        of_all_names.name.reset();
        Selection selection(m_database, of_all_names);
        std::vector<int64_t> ids;
        Statement find(m_database, "SELECT id FROM texts WHERE text=?");
        for (const std::string& name : names)
            ids.push_back(find.with(std::string_view(name)).step() ? find.integer(0) : g_all_names);
        std::vector<Passage> passages;
        for_each_event(m_database, selection, selection.from, selection.to, false, [&](const EventOnTheWay& event) {
            if (std::find(ids.begin(), ids.end(), event.kind->name) != ids.end())
                passages.push_back({event.installation, event.logged_at, event.id, event.kind->name});
        });
        std::sort(passages.begin(), passages.end());
        std::vector<uint64_t> reached(names.size());
        for (auto begin = passages.begin(); begin != passages.end();) {
            auto end = std::find_if(begin, passages.end(), [&](const Passage& passage) {
                return passage.installation != begin->installation;
            });
            size_t steps = steps_reached({begin, end}, ids);
            for (size_t step = 0; step < steps; ++step)
                ++reached[step];
            begin = end;
        }
        return reached;
    });
}

Result<Table<RejectRow>> SqliteReading::rejects(const Query& query, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        Table<RejectRow> table;
        Statement count(m_database, "SELECT count(*) FROM rejects WHERE received_at>=?1 AND received_at<?2 "
                                    "AND (?3=0 OR installation=?3)");
        count.with(selection.from * 1000, selection.to * 1000, selection.installation());
        table.total = count.step() ? static_cast<uint64_t>(count.integer(0)) : 0;
        Statement rows(m_database,
                       "SELECT received_at, installations.text, reason, rejects.text FROM rejects JOIN installations "
                       "ON installations.id=installation WHERE received_at>=?1 AND received_at<?2 "
                       "AND (?3=0 OR installation=?3) ORDER BY received_at DESC, rejects.id DESC LIMIT ?4");
        rows.with(selection.from * 1000, selection.to * 1000, selection.installation(),
                  static_cast<int64_t>(query.limit));
        while (rows.step())
            table.rows.push_back(
                {rows.integer(0), std::string(rows.text(1)), std::string(rows.text(2)), std::string(rows.text(3))});
        return table;
    });
}

Result<Health> SqliteReading::health(const Limit& limit)
{
    return ask(limit, [&] {
        Health health;
        std::map<std::string, int64_t, std::less<>> counters;
        Statement rows(m_database, "SELECT name, value FROM counters");
        while (rows.step())
            counters[std::string(rows.text(0))] = rows.integer(1);
        auto count = [&](const char* name) { return static_cast<uint64_t>(counters[name]); };
        health.events = count("events");
        health.rejects = count("rejects");
        health.uploads = count("uploads");
        health.count_differs = count("count_differs");
        health.last_received_at = counters["last_received_at"];
        health.installations =
            static_cast<uint64_t>(m_database.number("SELECT count(DISTINCT installation) FROM installed"));
        health.dropped = static_cast<uint64_t>(m_database.number("SELECT ifnull(sum(dropped), 0) FROM losses"));
        health.schema = static_cast<int>(m_database.number("PRAGMA user_version"));
        if (health.events != 0)
            health.oldest_event = m_database.number("SELECT min(first) FROM blocks");
        health.log_bytes = size_of(m_path + "-wal");
        health.bytes = size_of(m_path) + health.log_bytes;
        return health;
    });
}

Result<Cursor> SqliteReading::end(const Limit& limit)
{
    return ask(limit,
               [&] { return std::to_string(m_database.number("SELECT value FROM counters WHERE name='last_event'")); });
}

Result<Receipts> SqliteReading::receipts(const Query& query, Cursor after, const Limit& limit)
{
    return ask(limit, [&] {
        Selection selection(m_database, query);
        EventRows events(m_database);
        Receipts receipts;
        receipts.next = after;
        int64_t place = 0;
        std::from_chars(after.data(), after.data() + after.size(), place);
        const char* one = "SELECT id, kind, logged_at, members FROM events WHERE installation=?2 AND id>?1 ORDER BY id";
        // Blocks without an event of the period are passed over by the table of blocks.
        const char* all = "SELECT events.id, kind, logged_at, members FROM blocks JOIN events ON events.id BETWEEN "
                          "max(?1+1, block*4096) AND block*4096+4095 WHERE block>=?1/4096 AND last>=?2 AND first<?3 "
                          "ORDER BY block, events.id";
        static_assert(1 << g_block_bits == 4096);
        bool is_one = selection.installation() != 0;
        Statement rows(m_database, is_one ? one : all);
        is_one ? rows.with(place, selection.installation()) : rows.with(place, selection.from, selection.to);
        FactFilter fact(selection.fact());
        size_t looked_at = 0;
        while (receipts.rows.size() < query.limit && looked_at < g_most_looked_at) {
            if (!rows.step()) {
                receipts.at_end = true;
                break;
            }
            ++looked_at;
            receipts.next = std::to_string(rows.integer(0));
            if (rows.integer(2) >= selection.from && rows.integer(2) < selection.to &&
                selection.find(rows.integer(1)) != nullptr && (!fact || fact.admits(rows.text(3))))
                events.append(rows.integer(0), receipts.rows);
        }
        return receipts;
    });
}

} // namespace store::sqlite
