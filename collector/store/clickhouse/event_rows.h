// Whole events as they come from the table `events`.
#pragma once

#include "row_binary.h"
#include "store/answers.h"

#include <tuple>

namespace store::clickhouse {

/// A row with what tells its place among others.
struct Received
{
    EventRow row;
    uint64_t receipt = 0; ///< the later the smaller
    BatchId batch{};      ///< zeros for none
    uint64_t line = 0;

    /// Earlier received is less.
    bool operator<(const Received& other) const
    {
        return std::tie(other.receipt, batch, row.line, line) <
               std::tie(receipt, other.batch, other.row.line, other.line);
    }
};

/// The columns that read_event() reads.
constexpr const char* g_event_columns =
    "installation, application, version, name, is_named, logged, receipt, batch, has_batch, place, line, members";
Received read_event(RowReader& row);

/// What distinguishes events, as columns.
constexpr const char* g_event_place = "application, installation, batch, line";

} // namespace store::clickhouse
