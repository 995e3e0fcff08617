// What becomes of an upload in a cluster: rows of four tables, each for the shard of its installation.
//
// A row's key comes from what was sent alone: application, installation, batch and line, or the chained hash of the
// lines where there is no batch. So the same event has the same key from any collector at any time, and a repetition
// makes no second row.
#pragma once

#include "address.h"

namespace store::clickhouse {

/// Days since 1970-01-01, UTC.
using Day = int32_t;

/// The tables that collectors write.
enum class Kind : uint8_t
{
    events,
    rejects,
    drops,
    uploads
};
inline constexpr size_t g_kinds = 4;

/// 128 bits that stand for a row's place, all collectors' alike: so many rows share none.
using Key = std::array<unsigned char, 16>;

struct Piece
{
    Kind kind = Kind::events;
    uint32_t shard = 0;
    uint16_t week = 0; ///< the partition, for events; other tables have none
    Day day = 0;       ///< by `logged_at`; for events
    Key key{};
    std::string row;         ///< RowBinary of TableFacts::columns
    std::string place;       ///< RowBinary of TableFacts::place: what finds the row again
    std::string application; ///< of events
    std::string installation;
};

/// What has to be known of a table to insert rows and to find them again.
struct TableFacts
{
    const char* name;
    const char* columns;         ///< in the order of Piece::row
    const char* place;           ///< its columns, which are the table's order: equal ones are one row
    const char* place_structure; ///< the same with types, for an External
};
const TableFacts& facts(Kind kind);

/// What one collector has taken together: a row of `uploads`, for the store's health.
struct Taken
{
    BatchId collector{}; ///< 128 random bits that it made once
    uint64_t number = 0; ///< its own count of such rows
    uint32_t uploads = 0, differs = 0;
    Milliseconds last_received_at = 0;
};

/// Appends the rows of an upload. A line that its batch tells as dropped is no row: see Kind::drops.
void encode(const Upload& upload, size_t shards, std::vector<Piece>& out);

/// Whether some row of an upload belongs to this shard.
bool touches(const Upload& upload, uint32_t shard, size_t shards);
Piece encode(const Taken& taken, size_t shards);

/// What tells a line from all others, and how it is shown.
struct LineAt
{
    const BatchId* batch = nullptr; ///< none: the line came without one
    uint64_t number = 0;            ///< in its batch; else its chained key
    uint32_t place = 0;             ///< in its batch, or among the lines of its file
    Milliseconds received_at = 0;
};
// Single rows, for those who have no upload any more. `key` is left empty.
Piece encode(const Event& event, std::span<const Property> properties, const LineAt& at, size_t shards);
Piece encode(std::string_view sender, const Reject& reject, const LineAt& at, size_t shards);
Piece encode_drop(std::string_view sender, const BatchId& batch, uint32_t first, uint32_t count,
                  Milliseconds received_at, size_t shards);

/// The partition of an event: weeks since Monday 1969-12-29. Hosts' clocks may say anything, and each week is a part of
/// its own, so times outside 2000 to 2099 count as their ends for this alone.
uint16_t week_of(Seconds logged_at);
/// Floor, also before 1970.
int32_t hour_of(Seconds logged_at);
Day day_of(Seconds logged_at);

} // namespace store::clickhouse
