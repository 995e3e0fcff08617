// Questions about what is no event: rejects and lines that hosts told as dropped, by the time of receipt.
#include "cluster_reading.h"

namespace store::clickhouse {

namespace {

// Each reject once, by its first receipt: a repetition has a later one, so the period is looked at behind that.
std::string rejects_relation(const Filter& filter, int64_t from, int64_t to)
{
    return "(SELECT installation, batch, line, any(place) AS place, min(received) AS at, any(reason) AS why, any(text) "
           "AS begin FROM rejects WHERE " +
           filter.sender() + " AND received < " + std::to_string(to) +
           " GROUP BY installation, batch, line HAVING at >= " + std::to_string(from) + ")";
}

struct Reject
{
    RejectRow row;
    BatchId batch{};
    uint32_t place = 0;
    bool operator<(const Reject& other) const // newest first
    {
        return std::tie(other.row.received_at, other.batch, other.place) < std::tie(row.received_at, batch, place);
    }
};

BatchId read_batch(RowReader& row)
{
    BatchId batch{};
    std::string_view bytes = row.fixed(batch.size());
    std::copy(bytes.begin(), bytes.end(), batch.begin());
    return batch;
}

using LinesByBatch = std::map<BatchId, std::vector<uint64_t>>; // sorted, different ones

// Counts a line for whoever told it first, when it is not stored.
class Dropped
{
public:
    Dropped(std::vector<Told> told, const std::vector<uint64_t>& stored) : m_told(std::move(told)), m_stored(stored)
    {
        std::stable_sort(m_told.begin(), m_told.end(), [](const Told& a, const Told& b) { return a.at < b.at; });
    }

    template <class Use>
    void for_each(Use&& use)
    {
        std::map<uint64_t, uint64_t> before; // what was told before: ends by begins, apart
        for (const Told& told : m_told) {
            uint64_t count = 0, at = told.first;
            for (const auto& [first, end] : before) {
                if (at < std::min(first, told.end))
                    count += missing(at, std::min(first, told.end));
                at = std::max(at, std::min(end, told.end));
            }
            if (at < told.end)
                count += missing(at, told.end);
            if (told.is_meant && count != 0)
                use(told.at, count);
            join(before, told.first, told.end);
        }
    }

private:
    uint64_t missing(uint64_t first, uint64_t end) const
    {
        auto from = std::lower_bound(m_stored.begin(), m_stored.end(), first);
        auto to = std::lower_bound(from, m_stored.end(), end);
        return end - first - static_cast<uint64_t>(to - from);
    }

    static void join(std::map<uint64_t, uint64_t>& ranges, uint64_t first, uint64_t end)
    {
        for (auto range = ranges.begin(); range != ranges.end();) {
            if (range->first > end || range->second < first) {
                ++range;
                continue;
            }
            first = std::min(first, range->first);
            end = std::max(end, range->second);
            range = ranges.erase(range);
        }
        ranges[first] = end;
    }

    std::vector<Told> m_told;
    const std::vector<uint64_t>& m_stored;
};

std::string bytes_of(const ToldByBatch& batches)
{
    std::string bytes;
    for (const auto& [batch, told] : batches)
        bytes.append(reinterpret_cast<const char*>(batch.data()), batch.size());
    return bytes;
}

// Everything that was told of the batches of which something was told in the period.
void read_told(Shard& shard, const Filter& filter, int64_t from, int64_t to, ToldByBatch& told)
{
    const std::string in_period = "received >= " + std::to_string(from) + " AND received < " + std::to_string(to);
    shard.rows("SELECT batch, first, count, min(received) AS at, toUInt8(at >= " + std::to_string(from) + " AND at < " +
                   std::to_string(to) + " AND any(" + filter.sender() +
                   ")) FROM drops WHERE batch IN (SELECT batch FROM drops WHERE " + in_period +
                   ") GROUP BY batch, first, count",
               [&](RowReader& row) {
                   BatchId batch = read_batch(row);
                   Told one;
                   one.first = row.u32();
                   one.end = one.first + row.u32();
                   one.at = row.i64();
                   one.is_meant = row.u8() != 0;
                   told[batch].push_back(one);
               });
}

} // namespace

Result<Table<RejectRow>> ClusterReading::rejects(const Query& query, const Limit& limit)
{
    struct Part
    {
        uint64_t total = 0;
        std::vector<Reject> rows;
    };
    auto parts = ask<Part>(
        query, limit,
        [&](Shard& shard, const Filter& filter, Part& part) {
            const std::string rejects = rejects_relation(filter, filter.from * 1000, filter.to * 1000);
            shard.rows("SELECT count() FROM " + rejects, [&](RowReader& row) { part.total = row.u64(); });
            shard.rows("SELECT at, installation, why, begin, batch, place FROM " + rejects +
                           " ORDER BY at DESC, batch DESC, place DESC LIMIT " + std::to_string(query.limit),
                       [&](RowReader& row) {
                           Reject& one = part.rows.emplace_back();
                           one.row.received_at = row.i64();
                           one.row.installation = row.text();
                           one.row.reason = row.text();
                           one.row.line = row.text();
                           one.batch = read_batch(row);
                           one.place = row.u32();
                       });
        },
        Days::open);
    if (!parts)
        return parts.fault();
    Part all;
    for (Part& part : *parts) {
        all.total += part.total;
        all.rows.insert(all.rows.end(), part.rows.begin(), part.rows.end());
    }
    std::sort(all.rows.begin(), all.rows.end());
    Table<RejectRow> table;
    table.total = all.total;
    for (size_t i = 0; i < std::min(all.rows.size(), query.limit); ++i)
        table.rows.push_back(std::move(all.rows[i].row));
    return table;
}

void read_losses(Shard& shard, const Filter& filter, LossesPart& part)
{
    const int64_t from = hour_of(filter.from) * int64_t(3600000), to = hour_of(filter.to + 3599) * int64_t(3600000);
    shard.rows("SELECT intDiv(at, 3600000) AS hour, count() FROM " + rejects_relation(filter, from, to) +
                   " GROUP BY hour",
               [&](RowReader& row) {
                   uint64_t& rejects = part.rejects[row.i64()];
                   rejects = row.u64();
               });
    read_told(shard, filter, from, to, part.told);
}

// A batch's lines may lie on other shards than what was told of them, so all are asked again; mostly nothing was told.
Result<std::map<int64_t, ClusterReading::Losses>> ClusterReading::losses(std::vector<LossesPart> parts,
                                                                         const Limit& limit)
{
    std::map<int64_t, Losses> hours;
    ToldByBatch told;
    for (LossesPart& part : parts) {
        for (const auto& [hour, rejects] : part.rejects)
            hours[hour].rejects += rejects;
        for (auto& [batch, more] : part.told)
            told[batch].insert(told[batch].end(), more.begin(), more.end());
    }
    if (told.empty())
        return hours;
    const std::string batches = bytes_of(told);
    auto stored = m_shards.ask<LinesByBatch>(limit, [&](Shard& shard, LinesByBatch& part) {
        for (const char* table : {"events", "rejects"})
            shard.rows(std::string("SELECT DISTINCT batch, line FROM ") + table +
                           " WHERE batch IN (SELECT batch FROM batches)",
                       External{"batches", "batch FixedString(16)", batches}, [&](RowReader& row) {
                           BatchId batch = read_batch(row);
                           part[batch].push_back(row.u64());
                       });
    });
    if (!stored)
        return stored.fault();
    LinesByBatch lines = added(*stored, [](auto& sum, auto& more) { sum.insert(sum.end(), more.begin(), more.end()); });
    for (auto& [batch, of_batch] : told) {
        std::vector<uint64_t>& there = lines[batch];
        std::sort(there.begin(), there.end());
        there.erase(std::unique(there.begin(), there.end()), there.end());
        Dropped(std::move(of_batch), there).for_each([&](Milliseconds at, uint64_t count) {
            hours[hour_of(at / 1000)].dropped += count;
        });
    }
    return hours;
}

} // namespace store::clickhouse
