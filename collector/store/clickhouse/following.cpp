#include "following.h"

namespace store::clickhouse {

namespace {

constexpr uint32_t g_overlap = 60; // seconds that a part or a row may come to be seen after its own time

std::string key_of(const Received& event)
{
    std::string key = event.row.application;
    key.push_back('\0');
    key += event.row.installation;
    key.append(reinterpret_cast<const char*>(event.batch.data()), event.batch.size());
    return key + std::to_string(event.line);
}

std::string listed(const std::vector<std::string>& names)
{
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ",") + quoted(name);
    return "(" + list + ")";
}

void forget_before(std::unordered_map<std::string, uint32_t>& seen, uint32_t time)
{
    std::erase_if(seen, [time](const auto& one) { return one.second < time; });
}

} // namespace

Following::Following(size_t shards) : m_seen(shards) {}

std::optional<Fault> Following::look(Shards& shards, const FilterOf& filter_of, bool is_beginning, const Limit& limit)
{
    auto looks = shards.ask<Fresh>(limit, [&](Shard& shard, Fresh& fresh) {
        const Seen& seen = m_seen[shard.number()];
        std::vector<std::string> inserted, merged;
        shard.rows("SELECT name, toUInt32(level), toUInt32(modification_time), toUInt32(now()) FROM system.parts WHERE "
                   "database = currentDatabase() AND table = 'events' AND active AND toUInt32(modification_time) + " +
                       std::to_string(g_overlap) +
                       " >= " + (seen.now == 0 ? "toUInt32(now())" : std::to_string(seen.now)),
                   [&](RowReader& row) {
                       Part part;
                       part.name = row.text();
                       part.level = row.u32();
                       part.modified = row.u32();
                       fresh.now = row.u32();
                       if (seen.parts.count(part.name) != 0)
                           return;
                       (part.level == 0 ? inserted : merged).push_back(part.name);
                       fresh.parts.push_back(std::move(part));
                   });
        if (fresh.parts.empty())
            return;
        inserted.push_back("");
        merged.push_back("");
        const std::string since = std::to_string(fresh.now - g_overlap);
        shard.rows(std::string("SELECT ") + g_event_columns + ", toUInt32(stored) FROM events WHERE " +
                       filter_of(shard).rows() + " AND (_part IN " + listed(inserted) + " OR (_part IN " +
                       listed(merged) + " AND toUInt32(stored) >= " + since +
                       ")) ORDER BY stored, receipt DESC, batch, place, line",
                   [&](RowReader& row) {
                       Received event = read_event(row);
                       fresh.rows.emplace_back(std::move(event), row.u32());
                   });
    });
    if (!looks)
        return looks.fault();
    for (size_t shard = 0; shard < m_seen.size(); ++shard)
        take(m_seen[shard], (*looks)[shard], is_beginning);
    return std::nullopt;
}

void Following::take(Seen& seen, Fresh& fresh, bool is_beginning)
{
    for (Part& part : fresh.parts)
        seen.parts[std::move(part.name)] = part.modified;
    for (auto& [event, stored] : fresh.rows) {
        // Rows of an insert that was fetched late keep their place among those seen as long as the others.
        bool is_new = seen.rows.emplace(key_of(event), std::max(stored, fresh.now)).second;
        if (is_new && !is_beginning)
            m_rows.push_back(std::move(event.row));
    }
    if (fresh.now == 0)
        return;
    seen.now = fresh.now;
    forget_before(seen.parts, fresh.now - 3 * g_overlap);
    forget_before(seen.rows, fresh.now - 3 * g_overlap);
}

std::optional<Fault> Following::begin(Shards& shards, const FilterOf& filter_of, const Limit& limit)
{
    m_rows.clear();
    return look(shards, filter_of, true, limit);
}

Result<Receipts> Following::next(Shards& shards, const FilterOf& filter_of, size_t most, const Limit& limit)
{
    if (m_rows.empty()) {
        if (auto fault = look(shards, filter_of, false, limit))
            return *fault;
    }
    Receipts receipts;
    while (!m_rows.empty() && receipts.rows.size() < most) {
        receipts.rows.push_back(std::move(m_rows.front()));
        m_rows.pop_front();
    }
    receipts.next = g_cursor;
    receipts.at_end = m_rows.empty();
    return receipts;
}

} // namespace store::clickhouse
