// What leaves a cluster: weeks by age, rollups by age, installations that are to be forgotten.
#pragma once

#include "exclusions.h"

#include <span>

namespace store::clickhouse {

/// One shard's replicas, to be asked in their order.
using Replicas = std::span<Client>;

std::vector<Client> clients_of(const Layout& layout, size_t shard);

/// The first replica that does what is asked; else the trouble of the last one.
template <class Use>
auto with_any(Replicas replicas, Use&& use) -> decltype(use(replicas.front()))
{
    auto answer = use(replicas.front());
    for (size_t i = 1; i < replicas.size() && !answer; ++i)
        answer = use(replicas[i]);
    return answer;
}

/// Deletes an installation everywhere on a shard and waits until no replica that answers has a row of it.
/// @return the number of its events and rejects, before
Result<uint64_t> delete_installation(Replicas replicas, const std::string& installation, Clock::time_point until);

/// Remembers an installation as forgotten on every shard and deletes it. What a node that is away has of it goes when
/// that node is back.
/// @param exclusions  of this process; may be null
/// @return the number of its events and rejects
Result<uint64_t> forget(const Layout& layout, Exclusions* exclusions, const std::string& installation,
                        std::chrono::milliseconds wait);

/// Deletes again those who were forgotten and are found all the same: their lines came late, or from a spool.
/// @return how many were found
Result<uint64_t> repeat_deletions(const Layout& layout, Clock::time_point until);

/// Drops the weeks before `end` of a shard, and remembers them first: their rollups are never made again, and lines for
/// them not taken. A week whose rollups are not made yet stays.
Answer<Done> drop_weeks(Replicas replicas, uint16_t end, const Bounds& bounds);

/// Deletes rejects received before `raw`, and with `rollups` all that tells of days before it.
Answer<Done> delete_old(Replicas replicas, const Retention& retention, const Bounds& bounds);

} // namespace store::clickhouse
