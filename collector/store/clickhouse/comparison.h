// Compares what should be equal: the replicas of a shard with each other, and rollups with the rows that they tell of.
#pragma once

#include "client.h"
#include "rows.h"

namespace store::clickhouse {

/// Compares the days in [first, end), by the rows' keys. What differs is looked at again for some seconds, as a replica
/// may be about to fetch it.
/// @param report  called between the days
/// @return a sentence for each difference, and for each node that could not be compared
std::vector<std::string> compare(const Layout& layout, Day first, Day end,
                                 const std::function<void(const Progress&)>& report);

} // namespace store::clickhouse
