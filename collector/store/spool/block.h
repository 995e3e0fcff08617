// Rows as the spool keeps them: those of one commit for one table of one shard, one behind the other, and an index that
// tells where each ends.
#pragma once

#include "screen.h"

#include "store/clickhouse/rows.h"

namespace store::spool {

using clickhouse::Kind;

/// A row in a block's memory.
struct Row
{
    uint16_t week = 0;       ///< see clickhouse::Piece
    clickhouse::Day day = 0; ///< likewise
    std::string_view bytes;  ///< RowBinary
    std::string_view place;  ///< how `bytes` begins: what finds the row again
};

/// The application of an event's row.
std::string_view application_of(const Row& row);
/// Empty for tables that have none.
std::string_view installation_of(Kind kind, const Row& row);
/// Whether a row must not be stored, or no more.
bool is_screened(const Screen& screen, Kind kind, const Row& row);

/// A block's two texts.
struct Block
{
    uint32_t lines = 0;
    std::string index, rows;

    void add(const Row& row);
    /// Slices of `rows`; fewer than there were when the texts are damaged.
    std::vector<Row> read() const;
};

} // namespace store::spool
