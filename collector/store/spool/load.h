// A group's rows in memory, sorted by the tables they are for.
#pragma once

#include "parts.h"

namespace store::spool {

struct Load
{
    struct Line
    {
        size_t block;  ///< of the group's blocks
        size_t number; ///< within the block
        Row row;
    };
    std::vector<Block> texts; ///< what the rows are slices of
    std::array<std::vector<Line>, clickhouse::g_kinds> lines;
    std::vector<std::pair<clickhouse::Day, std::string>> days; ///< with applications; of the events, each once
};

/// Reads a group, less what the screen keeps out; none when the spool's file does not give all of it.
std::optional<Load> read_load(Spool& spool, const Group& group, const Screen& screen);

} // namespace store::spool
