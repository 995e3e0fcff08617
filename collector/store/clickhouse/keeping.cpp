#include "keeping.h"

#include "relations.h"
#include "rollups.h"
#include "row_binary.h"

#include <algorithm>
#include <thread>

namespace store::clickhouse {

namespace {

using namespace std::chrono_literals;

constexpr size_t g_telling_bytes = 8; // an id of that length hardly stands anywhere by chance
constexpr Milliseconds g_day = 86400000;
constexpr std::chrono::milliseconds g_patience = 30s;

// Where an installation stands, and how its rows are found.
struct Where
{
    const char* table;
    std::string condition;
};

std::vector<Where> places_of(const std::string& installation)
{
    const std::string is = "installation=" + quoted(installation);
    // Broken lines of it may have come from other senders. A short id may be a part of anything, so it is looked for as
    // lines have it.
    const std::string told = installation.size() < g_telling_bytes ? '"' + installation + '"' : installation;
    return {{"events", is},      {"rejects", "(" + is + " OR position(text, " + quoted(told) + ") != 0)"},
            {"drops", is},       {"installed", is},
            {"roll_active", is}, {"roll_names", is},
            {"roll_facts", is},  {"roll_values", "(type=0 AND text=" + quoted(installation) + ")"}};
}

Answer<uint64_t> number(Client& client, const std::string& select, const Bounds& bounds)
{
    auto answer = client.ask(select + " FORMAT RowBinary", bounds);
    return answer ? Answer<uint64_t>(RowReader(*answer).u64()) : Answer<uint64_t>(answer.fault());
}

Answer<uint64_t> rows_in(Client& client, const Where& where, const Bounds& bounds)
{
    return number(client, std::string("SELECT count() FROM ") + where.table + " WHERE " + where.condition, bounds);
}

Answer<uint64_t> lines_of(Client& client, const std::string& installation, const Bounds& bounds)
{
    const std::vector<Where> places = places_of(installation);
    return number(client,
                  "SELECT toUInt64(sum(n)) FROM (SELECT uniqExact(application, name, is_named, hour, batch, line) AS n "
                  "FROM events WHERE " +
                      places[0].condition +
                      " UNION ALL SELECT uniqExact(installation, batch, line) AS n FROM rejects "
                      "WHERE " +
                      places[1].condition + ")",
                  bounds);
}

Answer<Done> delete_rows(Client& client, const std::vector<Where>& places, const Bounds& bounds)
{
    for (const Where& where : places) {
        auto rows = rows_in(client, where, bounds);
        if (!rows)
            return rows.fault();
        if (*rows == 0)
            continue;
        auto done = client.run(std::string("ALTER TABLE ") + where.table + " DELETE WHERE " + where.condition, bounds);
        if (!done)
            return done;
    }
    return Done();
}

// Until no row is left there, or it does not answer: then it deletes them when it is back.
bool wait_for(Client& client, const std::vector<Where>& places, const Bounds& bounds)
{
    for (const Where& where : places) {
        for (;;) {
            auto rows = rows_in(client, where, bounds);
            if (!rows && rows.fault().kind == Trouble::Kind::unreachable)
                return true;
            if (rows && *rows == 0)
                break;
            if (Clock::now() >= bounds.until)
                return false;
            std::this_thread::sleep_for(50ms);
        }
    }
    return true;
}

Answer<std::vector<uint16_t>> partitions(Client& client, const std::string& table, uint16_t end, const Bounds& bounds)
{
    auto answer =
        client.ask("SELECT DISTINCT toUInt16(partition) FROM system.parts WHERE database=currentDatabase() "
                   "AND active AND table=" +
                       quoted(table) + " AND toUInt16(partition)<" + std::to_string(end) + " FORMAT RowBinary",
                   bounds);
    if (!answer)
        return answer.fault();
    std::vector<uint16_t> weeks;
    for (RowReader rows(*answer); !rows.done();)
        weeks.push_back(rows.u16());
    return weeks;
}

// A replica that leads no merges would send the statement on as a user of its own.
Client* leader_of(Replicas replicas, const std::string& table, const Bounds& bounds)
{
    for (Client& client : replicas) {
        auto leads = number(client,
                            "SELECT toUInt64(is_leader) FROM system.replicas WHERE database=currentDatabase() AND "
                            "table=" +
                                quoted(table),
                            bounds);
        if (leads && *leads != 0)
            return &client;
    }
    return nullptr;
}

Answer<Done> drop_partitions(Replicas replicas, const std::string& table, uint16_t end, const Bounds& bounds)
{
    Client* leader = leader_of(replicas, table, bounds);
    if (leader == nullptr)
        return Done(); // the next time
    auto weeks = partitions(*leader, table, end, bounds);
    if (!weeks)
        return weeks.fault();
    for (const uint16_t week : *weeks) {
        if (auto done = leader->run("ALTER TABLE " + table + " DROP PARTITION " + std::to_string(week), bounds); !done)
            return done;
    }
    return Done();
}

// A deletion writes whole parts anew, so it waits until there is a day's worth.
Answer<Done> delete_before(Client& client, const std::string& table, const std::string& column, int64_t before,
                           int64_t day, const Bounds& bounds)
{
    auto due = rows_in(client, {table.c_str(), column + "<" + std::to_string(before - day)}, bounds);
    if (!due)
        return due.fault();
    if (*due == 0)
        return Done();
    return client.run("ALTER TABLE " + table + " DELETE WHERE " + column + "<" + std::to_string(before), bounds);
}

} // namespace

std::vector<Client> clients_of(const Layout& layout, size_t shard)
{
    std::vector<Client> clients;
    for (const Node& node : layout.shards[shard])
        clients.emplace_back(node, layout);
    return clients;
}

Result<uint64_t> delete_installation(Replicas replicas, const std::string& installation, Clock::time_point until)
{
    const Bounds bounds{g_patience, 0, until};
    const std::vector<Where> places = places_of(installation);
    auto deleted = with_any(replicas, [&](Client& client) -> Answer<uint64_t> {
        auto lines = lines_of(client, installation, bounds);
        if (!lines)
            return lines;
        auto done = delete_rows(client, places, bounds);
        return done ? lines : Answer<uint64_t>(done.fault());
    });
    if (!deleted)
        return fault_of(deleted.fault());
    for (Client& client : replicas) {
        if (!wait_for(client, places, bounds))
            return Fault{FaultKind::busy, client.node().name() + " is still deleting; the rest goes by itself."};
    }
    return *deleted;
}

Result<uint64_t> forget(const Layout& layout, Exclusions* exclusions, const std::string& installation,
                        std::chrono::milliseconds wait)
{
    if (layout.secret.empty())
        return Fault{FaultKind::other, "To forget an installation a cluster needs --secret: the same file at every "
                                       "collector, made by \"analytics-collector secret new\"."};
    const auto until = Clock::now() + wait;
    if (exclusions != nullptr)
        exclusions->forget(installation);
    const std::string hash = hash_of(installation, layout.secret);
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        std::vector<Client> clients = clients_of(layout, shard);
        auto told = with_any(clients, [&](Client& client) {
            return client.insert("forgotten", "hash", hash, {g_patience, 0, until});
        });
        if (!told)
            return fault_of(told.fault());
    }
    uint64_t lines = 0;
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        std::vector<Client> clients = clients_of(layout, shard);
        auto deleted = delete_installation(clients, installation, until);
        if (!deleted)
            return deleted;
        lines += *deleted;
    }
    return lines;
}

Result<uint64_t> repeat_deletions(const Layout& layout, Clock::time_point until)
{
    const Bounds bounds{g_patience, 0, until};
    uint64_t count = 0;
    for (size_t shard = 0; shard < layout.shards.size() && !layout.secret.empty(); ++shard) {
        std::vector<Client> clients = clients_of(layout, shard);
        auto found = with_any(clients, [&](Client& client) -> Answer<std::vector<std::string>> {
            auto excluded = read_excluded(client, bounds);
            if (!excluded)
                return excluded.fault();
            return find_forgotten(client, excluded->hashes, layout.secret, bounds);
        });
        if (!found)
            return fault_of(found.fault());
        for (const std::string& installation : *found) {
            if (auto deleted = delete_installation(clients, installation, until); !deleted)
                return deleted;
        }
        count += found->size();
    }
    return count;
}

Answer<Done> drop_weeks(Replicas replicas, uint16_t end, const Bounds& bounds)
{
    return with_any(replicas, [&](Client& client) -> Answer<Done> {
        auto excluded = read_excluded(client, bounds);
        auto open = days_to_roll(client, std::numeric_limits<Day>::min(), std::numeric_limits<Day>::max(), bounds);
        if (!excluded || !open)
            return excluded ? open.fault() : excluded.fault();
        for (const Dated& day : *open)
            end = std::min(end, week_of(day.first * int64_t(86400)));
        // What is dropped now was remembered the last time, so that every collector has heard of it.
        if (auto dropped = drop_partitions(replicas, "events", excluded->last_week + 1, bounds); !dropped)
            return dropped;
        if (end == 0 || excluded->last_week >= end - 1)
            return Done();
        std::string row;
        RowWriter(row).u16(static_cast<uint16_t>(end - 1));
        return client.insert("retired", "week", row, bounds);
    });
}

Answer<Done> delete_old(Replicas replicas, const Retention& retention, const Bounds& bounds)
{
    return with_any(replicas, [&](Client& client) -> Answer<Done> {
        Answer<Done> done = Done();
        if (retention.raw_before)
            done = delete_before(client, "rejects", "received", *retention.raw_before, g_day, bounds);
        if (!retention.rollups_before || !done)
            return done;
        const Seconds before = *retention.rollups_before / 1000;
        for (const Roll roll : g_rolls) {
            if (done = drop_partitions(replicas, table_of(roll), week_of(before), bounds); !done)
                return done;
        }
        // The first day of the first week that stays.
        const Day first = week_of(before) * 7 - 3;
        const struct
        {
            const char *table, *column;
            int64_t before, day;
        } rows[] = {{"roll_days", "day", first, 0},
                    {"marks", "day", first, 0},
                    {"drops", "received", *retention.rollups_before, g_day},
                    {"uploads", "last_received", *retention.rollups_before, g_day}};
        for (const auto& row : rows) {
            if (done = delete_before(client, row.table, row.column, row.before, row.day, bounds); !done)
                return done;
        }
        return done;
    });
}

} // namespace store::clickhouse
