// Brings a store that is one file into a cluster.
//
// Rows keep their own keys, so what is sent twice is there once: a move that was ended goes on where it was, and one
// that is begun anew does no harm. The file is only read, and may be served meanwhile; a later move brings the rest.
#pragma once

#include "store/clickhouse/address.h"

namespace store::cluster {

struct MoveOptions
{
    size_t group_lines = 100000; ///< of one insert
    bool from_the_start = false; ///< sends again what an earlier move sent
};

/// What one move sent.
struct Moved
{
    uint64_t rows = 0, drops = 0, uploads = 0;
};

/// How far it is stands in FILE-moved.
/// @param report  called between steps; `done` and `total` count rows
/// @return a fault when a shard takes nothing for a minute, or at the end some replica has not all of it: then a
///         further move ends the work
Result<Moved> move_file(const std::string& file, const clickhouse::Layout& layout, const MoveOptions& options,
                        const std::function<void(const Progress&)>& report);

} // namespace store::cluster
