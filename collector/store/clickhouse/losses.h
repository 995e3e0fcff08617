// What a shard knows of rejects and of lines that hosts told as dropped.
#pragma once

#include "filter.h"
#include "shards.h"

#include <map>

namespace store::clickhouse {

/// Lines of a batch that were told as dropped at one time.
struct Told
{
    Milliseconds at = 0;
    uint64_t first = 0, end = 0;
    bool is_meant = false; ///< by its time and teller
};
using ToldByBatch = std::map<BatchId, std::vector<Told>>;

/// A shard's part. Which of the lines told are stored all the same may be known to other shards.
struct LossesPart
{
    std::map<int64_t, uint64_t> rejects; ///< by the number of the hour of receipt
    ToldByBatch told;
};

void read_losses(Shard& shard, const Filter& filter, LossesPart& part);

} // namespace store::clickhouse
