// The chores of a cluster, on a thread of each collector that serves: rollups of days that are past, weeks that are too
// old, deletions that have to be repeated. For each shard a lease keeps the collectors from doing them twice.
#pragma once

#include "keeping.h"
#include "lease.h"
#include "marks.h"
#include "rounds.h"

namespace store::clickhouse {

class Upkeep
{
public:
    explicit Upkeep(std::shared_ptr<const Layout> layout);

    /// What is to go from now on; the thread sees to it. Any thread.
    Result<Progress> retain(const Retention& retention);
    /// Why the last round left something undone; empty: it did not.
    std::string trouble() const;

private:
    struct Chores;
    void work();
    Answer<Done> tend(Chores& shard);
    Answer<Done> roll(Chores& shard, Client& client);
    Answer<Done> look_at_starts(Chores& shard, Client& client);
    Answer<Done> keep(Chores& shard);

    const std::shared_ptr<const Layout> m_layout;
    mutable std::mutex m_lock;
    Retention m_retention;
    std::string m_trouble;
    Rounds m_rounds;
};

/// Makes the rollups that are missing of days in [first, end) that are past, on every shard, whoever holds the lease.
/// @param say  told each one before it is made
/// @return how many were made
Result<uint64_t> make_rollups(const Layout& layout, Day first, Day end,
                              const std::function<void(size_t shard, const Dated& day)>& say);

/// The last day that is past for good, by the node's clock and by ours: half an hour after its end by the one that is
/// behind, for lines under way.
Answer<Day> last_closed_day(Client& client, const Bounds& bounds = {});

} // namespace store::clickhouse
