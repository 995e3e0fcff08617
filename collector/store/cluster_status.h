// How a store on a cluster is, as this collector knows without asking anybody: its spool, and how the replicas answered
// last.
#pragma once

#include "answers.h"
#include "result.h"

#include <string>
#include <vector>

namespace store {

/// A node, as the shipper and the readers met it last.
struct ReplicaStatus
{
    std::string node; ///< "host:port"
    uint32_t shard = 0;
    bool is_up = true;            ///< it answered last time, whatever the answer
    int last_code = 0;            ///< the engine's number of the last refusal; 0 after an answer that was none
    std::string last_trouble;     ///< a sentence about the last answer that was none; empty: none since the start
    Milliseconds trouble_at = 0;  ///< when that was
    Milliseconds answered_at = 0; ///< when it last did what it was asked
};

/// A line that the engine refuses by number whatever it is sent with. It stays in the spool.
struct LineAside
{
    std::string table;   ///< where it was to go
    int code = 0;        ///< the engine's number
    std::string trouble; ///< its sentence
    Milliseconds received_at = 0;
};

struct SpoolStatus
{
    std::string file;
    uint64_t bytes = 0, limit = 0;   ///< of the file, and the most it may have
    uint64_t blocks_waiting = 0;     ///< on no replica yet
    uint64_t groups_unchecked = 0;   ///< shipped, and kept until found again on both replicas
    Milliseconds oldest_waiting = 0; ///< receipt of the oldest line on no replica yet; 0: none waits
    Milliseconds oldest_kept = 0;    ///< the same among all that is kept
    bool is_full = false;            ///< uploads are refused for want of room
    std::vector<LineAside> aside;    ///< the first of them
    uint64_t lines_aside = 0;        ///< how many there are
    uint64_t too_old = 0;            ///< lines taken and not stored, as their week was dropped by age; since the start
    uint64_t forgotten = 0;          ///< the same of forgotten installations
};

struct ClusterStatus
{
    SpoolStatus spool;
    std::vector<ReplicaStatus> replicas;
    std::optional<Fault> door; ///< why all uploads are refused before they are read, while they are
    std::string upkeep;        ///< why the last round of rollups, old weeks and deletions left some undone; empty: none
    std::vector<Fault> shut;   ///< the same of shards that take nothing, while others may
};

} // namespace store
