// What all questions need, the walks over events, and the store's own state.
#include "cluster_reading.h"

#include "following.h"
#include "walk.h"

namespace store::clickhouse {

ClusterReading::ClusterReading(ReadingParts parts) : m_parts(std::move(parts)), m_shards(m_parts.layout) {}

ClusterReading::~ClusterReading() = default;

Filter ClusterReading::filter_of(Shard& shard, const Query& query, Days days)
{
    Closed closed;
    auto [first, end] = Filter::whole_days(query);
    if (days == Days::closed && m_parts.closed && first < end && !query.fact)
        closed = m_parts.closed(shard.client(), query.application, first, end);
    return Filter(query, std::move(closed), m_parts.forgotten ? m_parts.forgotten(shard.client()) : "");
}

// Where nothing else is said, the order of receipt is walked from its beginning.
Result<Receipts> ClusterReading::receipts(const Query& query, Cursor after, const Limit& limit)
{
    const size_t most = std::max<size_t>(query.limit, 1);
    auto rows_alone = [&](Shard& shard) { return filter_of(shard, query, Days::open); };
    if (after == Following::g_cursor) {
        if (m_spFollowing == nullptr) {
            if (auto begun = end(limit); !begun)
                return begun.fault();
        }
        return m_spFollowing->next(m_shards, rows_alone, most, limit);
    }
    if (m_spWalk == nullptr || !m_spWalk->stands_at(query, after))
        m_spWalk = std::make_unique<Walk>(query, WalkPlace::from(after), m_shards.count());
    auto receipts = m_spWalk->next(m_shards, rows_alone, most, limit);
    if (!receipts || receipts->at_end)
        m_spWalk.reset();
    return receipts;
}

Result<Cursor> ClusterReading::end(const Limit& limit)
{
    if (m_spFollowing == nullptr)
        m_spFollowing = std::make_unique<Following>(m_shards.count());
    auto all = [&](Shard& shard) { return Filter({}, {}, m_parts.forgotten ? m_parts.forgotten(shard.client()) : ""); };
    if (auto fault = m_spFollowing->begin(m_shards, all, limit))
        return *fault;
    return Cursor(Following::g_cursor);
}

namespace {

struct HealthPart : Health
{
    LossesPart lost;
};

void read_health(Shard& shard, const Filter& filter, HealthPart& part)
{
    const auto number = [&](const std::string& select) {
        uint64_t value = 0;
        shard.rows(select, [&](RowReader& row) { value = row.u64(); });
        return value;
    };
    shard.rows(events_select(filter, ""), [&](RowReader& row) { part.events = row.u64(); });
    part.installations = number("SELECT uniqExact(installation) FROM installed WHERE " + filter.installed());
    part.bytes = number("SELECT toUInt64(sum(bytes_on_disk)) FROM system.parts WHERE database = currentDatabase() "
                        "AND active");
    part.schema = static_cast<int>(number("SELECT toUInt64(any(value)) FROM meta WHERE name = 'schema'"));
    shard.rows("SELECT toUInt64(sum(u)), toUInt64(sum(d)), toInt64(max(r)) FROM (SELECT any(uploads) AS u, "
               "any(differs) AS d, any(last_received) AS r FROM uploads GROUP BY collector, number)",
               [&](RowReader& row) {
                   part.uploads = row.u64();
                   part.count_differs = row.u64();
                   part.last_received_at = row.i64();
               });
    shard.rows("SELECT min(logged), count() FROM events WHERE " + filter.rows(), [&](RowReader& row) {
        Seconds oldest = row.i64();
        if (row.u64() != 0)
            part.oldest_event = oldest;
    });
    read_losses(shard, filter, part.lost);
}

void add(Health& health, const Health& part)
{
    health.events += part.events;
    health.installations += part.installations;
    health.uploads += part.uploads;
    health.count_differs += part.count_differs;
    health.bytes += part.bytes;
    health.schema = std::max(health.schema, part.schema);
    health.last_received_at = std::max(health.last_received_at, part.last_received_at);
    if (part.oldest_event && (!health.oldest_event || *part.oldest_event < *health.oldest_event))
        health.oldest_event = part.oldest_event;
}

} // namespace

Result<Health> ClusterReading::health(const Limit& limit)
{
    auto parts = ask<HealthPart>({}, limit, read_health);
    if (!parts)
        return parts.fault();
    Health health;
    for (const HealthPart& part : *parts)
        add(health, part);
    auto lost = losses(*parts, limit);
    if (!lost)
        return lost.fault();
    for (const auto& [hour, loss] : *lost) {
        health.rejects += loss.rejects;
        health.dropped += loss.dropped;
    }
    return health;
}

std::unique_ptr<Reading> make_reading(ReadingParts parts)
{
    return std::make_unique<ClusterReading>(std::move(parts));
}

} // namespace store::clickhouse
