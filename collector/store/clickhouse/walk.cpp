#include "walk.h"

#include <charconv>
#include <unordered_map>

namespace store::clickhouse {

namespace {

constexpr size_t g_ahead = 20000; // rows of a shard that are read at once

constexpr std::string_view g_begin = "receipt ";

std::string hexadecimal(const BatchId& batch)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char byte : batch)
        text += {digits[byte >> 4], digits[byte & 15]};
    return text;
}

WalkPlace place_of(const Received& event)
{
    return {event.receipt, event.batch, event.row.line, event.line};
}

struct Found
{
    std::vector<Received> rows;
    WalkPlace place; ///< behind them and their repetitions
    bool is_over = true;
};

// The rows behind a place in their order, repetitions among them: first how far they reach, in one column, so that the
// others are read of that span alone.
void read_rows(Shard& shard, const std::string& meant, const WalkPlace& place, Found& found)
{
    uint64_t last = 0, count = 0;
    const std::string behind = meant + " AND " + place.behind();
    shard.rows("SELECT min(receipt), count() FROM (SELECT receipt FROM events WHERE " + behind +
                   " ORDER BY receipt DESC LIMIT " + std::to_string(g_ahead) + ")",
               [&](RowReader& row) {
                   last = row.u64();
                   count = row.u64();
               });
    found.is_over = count < g_ahead;
    if (count == 0)
        return;
    shard.rows(std::string("SELECT ") + g_event_columns + " FROM events WHERE " + behind + " AND receipt >= " +
                   std::to_string(last) + " ORDER BY receipt DESC, batch, place, line LIMIT " + std::to_string(g_ahead),
               [&](RowReader& row) { found.rows.push_back(read_event(row)); });
}

// What tells whether two rows are one event.
std::string key_of(const Received& event)
{
    std::string key;
    RowWriter(key)
        .text(event.row.application)
        .text(event.row.installation)
        .fixed({reinterpret_cast<const char*>(event.batch.data()), event.batch.size()})
        .u64(event.line);
    return key;
}

// Of an event that is there more than once the first receipt counts: rows with an earlier one elsewhere go.
void leave_out_repetitions(Shard& shard, std::vector<Received>& rows)
{
    std::string keys;
    Seconds first = std::numeric_limits<Seconds>::max(), last = std::numeric_limits<Seconds>::min();
    for (const Received& event : rows) {
        keys += key_of(event);
        first = std::min(first, event.row.logged_at);
        last = std::max(last, event.row.logged_at);
    }
    std::unordered_map<std::string, uint64_t> receipts;
    shard.rows(std::string("SELECT ") + g_event_place + ", max(receipt) FROM events WHERE (" + g_event_place +
                   ") IN (SELECT * FROM walked)" + Filter::between(first, last + 1) + " GROUP BY " + g_event_place +
                   " HAVING count() > 1",
               External{"walked", "application String, installation String, batch FixedString(16), line UInt64", keys},
               [&](RowReader& row) {
                   std::string key;
                   RowWriter write(key);
                   write.text(row.text());
                   write.text(row.text());
                   write.fixed(row.fixed(16));
                   write.u64(row.u64());
                   receipts[key] = row.u64();
               });
    // A row that was sent to the cluster twice has even the same receipt.
    std::unordered_map<std::string, bool> is_shown;
    std::erase_if(rows, [&](const Received& event) {
        if (receipts.empty())
            return false;
        std::string key = key_of(event);
        auto known = receipts.find(key);
        return known != receipts.end() && (event.receipt != known->second || !is_shown.emplace(key, true).second);
    });
}

} // namespace

Cursor WalkPlace::text() const
{
    return std::string(g_begin) + std::to_string(receipt) + " " + hexadecimal(batch) + " " + std::to_string(place) +
           " " + std::to_string(line);
}

WalkPlace WalkPlace::from(const Cursor& cursor)
{
    WalkPlace place;
    char batch[33] = "";
    unsigned long long receipt = 0, line = 0;
    if (sscanf(cursor.c_str(), "receipt %llu %32[0-9a-f] %u %llu", &receipt, batch, &place.place, &line) != 4)
        return {};
    place.receipt = receipt;
    place.line = line;
    for (size_t i = 0; i < place.batch.size(); ++i)
        std::from_chars(batch + 2 * i, batch + 2 * i + 2, place.batch[i], 16);
    return place;
}

std::string WalkPlace::behind() const
{
    const std::string first = std::to_string(receipt),
                      second = "toFixedString(unhex('" + hexadecimal(batch) + "'), 16)", third = std::to_string(place),
                      fourth = std::to_string(line);
    return "receipt <= " + first + " AND (receipt < " + first + " OR batch > " + second + " OR (batch = " + second +
           " AND (place > " + third + " OR (place = " + third + " AND line > " + fourth + "))))";
}

Walk::Walk(const Query& query, const WalkPlace& after, size_t shards) : m_query(query), m_place(after), m_ahead(shards)
{
    for (Ahead& ahead : m_ahead)
        ahead.place = after;
}

bool Walk::stands_at(const Query& query, const Cursor& after) const
{
    auto words = [](const Query& one) {
        return std::tie(one.from, one.to, one.application, one.version, one.name, one.installation, one.fact);
    };
    return words(query) == words(m_query) && after == m_place.text();
}

std::optional<Fault> Walk::read(Shards& shards, const FilterOf& filter_of, const Limit& limit)
{
    auto parts = shards.ask<Found>(limit, [&](Shard& shard, Found& found) {
        const Ahead& ahead = m_ahead[shard.number()];
        if (!ahead.rows.empty() || ahead.is_over)
            return;
        read_rows(shard, filter_of(shard).rows(), ahead.place, found);
        if (found.rows.empty())
            return;
        found.place = place_of(found.rows.back());
        leave_out_repetitions(shard, found.rows);
    });
    if (!parts)
        return parts.fault();
    for (size_t shard = 0; shard < m_ahead.size(); ++shard) {
        Ahead& ahead = m_ahead[shard];
        std::vector<Received>& rows = (*parts)[shard].rows;
        if (!ahead.rows.empty() || ahead.is_over)
            continue;
        ahead.is_over = (*parts)[shard].is_over;
        ahead.place = (*parts)[shard].place;
        ahead.rows.assign(std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
    }
    return std::nullopt;
}

Result<Receipts> Walk::next(Shards& shards, const FilterOf& filter_of, size_t most, const Limit& limit)
{
    Receipts receipts;
    auto needs_rows = [](const Ahead& ahead) { return ahead.rows.empty() && !ahead.is_over; };
    while (receipts.rows.size() < most) {
        while (std::any_of(m_ahead.begin(), m_ahead.end(), needs_rows)) {
            if (auto fault = read(shards, filter_of, limit))
                return *fault;
        }
        Ahead* first = nullptr;
        for (Ahead& ahead : m_ahead) {
            if (!ahead.rows.empty() && (first == nullptr || ahead.rows.front() < first->rows.front()))
                first = &ahead;
        }
        if (first == nullptr) {
            receipts.at_end = true;
            break;
        }
        m_place = place_of(first->rows.front());
        receipts.rows.push_back(std::move(first->rows.front().row));
        first->rows.pop_front();
    }
    receipts.next = m_place.text();
    return receipts;
}

} // namespace store::clickhouse
