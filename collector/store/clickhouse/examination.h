// Looks over the nodes of a cluster: how each is, what is wrong, and what to do about it.
#pragma once

#include "client.h"

namespace store::clickhouse {

/// What a node says about itself. Nothing but its name and shard when it does not answer.
struct NodeReport
{
    std::string node; ///< "host:port"
    uint32_t shard = 0;
    bool answers = false;
    bool refuses = false;    ///< there is an answer, but it is a refusal
    bool takes_rows = false; ///< it stored a row just now
    std::string version;     ///< of the engine
    uint64_t uptime = 0;     ///< seconds
    int64_t clock_ahead = 0; ///< of this machine's, in seconds
    uint64_t lag = 0;        ///< seconds behind its peers, of the table that is worst
    uint64_t queue = 0;      ///< parts to fetch and merges to make
    uint64_t bytes = 0;      ///< of the database on its disk
    uint64_t free_bytes = 0; ///< of that disk; 0 where the engine does not tell
    uint64_t disk_bytes = 0;
    std::vector<std::string> findings; ///< sentences: what is wrong, and what to do
};

/// All nodes at once. A row is stored on each to see whether it can (of `logouts`, one that has run out): a full disk
/// or a lost keeper shows in nothing else.
std::vector<NodeReport> examine(const Layout& layout);

/// What is wrong with shards rather than nodes: findings of the same kind.
std::vector<std::string> examine_shards(const Layout& layout, const std::vector<NodeReport>& nodes);

/// What one of the engine's numbers means here and what to do; for one that is not known, where to look.
std::string advice_about(int code);

} // namespace store::clickhouse
