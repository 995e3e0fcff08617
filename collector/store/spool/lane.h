// The blocks of one shard on their way: those that no replica has yet, in order of receipt; groups to be sent once
// more; groups that were shipped and wait for their check.
#pragma once

#include "spool.h"

#include <condition_variable>
#include <deque>
#include <map>

namespace store::spool {

/// Blocks that are shipped together, and checked together.
struct Group
{
    enum class Origin
    {
        fresh,   ///< uploads may wait for it
        backlog, ///< was in the spool when the process began
        again    ///< was shipped before, or stood aside
    };
    Origin origin = Origin::fresh;
    std::vector<BlockFacts> blocks;
    uint64_t lines = 0, bytes = 0;
    size_t replica = 0;    ///< to which it was shipped
    bool is_aside = false; ///< its lines were refused before
    Clock::time_point shipped_at{};
    std::optional<Checked> checked; ///< since when all replicas have it; none: not known to

    void add(const BlockFacts& block);
};

struct GroupBounds
{
    size_t lines = 100000;
    size_t bytes = 32 << 20; ///< two groups of each shard may be in memory
    std::chrono::milliseconds time{250};
};

/// Any thread.
class Lane
{
public:
    explicit Lane(const GroupBounds& bounds) : m_bounds(bounds) {}

    /// What was just received.
    void add(const BlockFacts& block);
    /// What is to be shipped besides, in turns with what is received.
    void add(Group group);
    /// The next group: what has come in the bounds' time, or less when the bounds are reached; none after stop().
    std::optional<Group> next();
    /// The end of next(): `group` is on a replica.
    void shipped(Group group);
    /// The other end of next(): what was just received is tried again, with what has come since. False when nothing
    /// has, or there is no room for it; the group is then still the caller's.
    bool give_back(const Group& group);
    /// Groups that were shipped since it was asked last; waits up to `time` for some.
    std::vector<Group> take_shipped(std::chrono::milliseconds time);
    void stop();

    /// Whether a replica has all blocks of a commit of this process.
    bool has_shipped(Commit commit) const;
    /// The same of this commit, which may be of a process before, and of all before it.
    bool has_shipped_up_to(Commit commit) const;
    /// Since when what was received has waited without a success; none: nothing waits.
    std::optional<Clock::time_point> waiting_since() const;

    struct Figures
    {
        uint64_t blocks = 0; ///< on no replica yet
        Milliseconds oldest = 0;
    };
    Figures waiting() const;

private:
    struct Fresh
    {
        BlockFacts block;
        Clock::time_point at;
    };
    Group take_fresh();
    bool is_ripe() const;

    const GroupBounds m_bounds;
    mutable std::mutex m_lock;
    std::condition_variable m_wake_shipper, m_wake_checker;
    std::deque<Fresh> m_fresh;
    uint64_t m_fresh_lines = 0, m_fresh_bytes = 0;
    size_t m_in_hand = 0; ///< blocks at the front of m_fresh that are being shipped
    std::deque<Group> m_others;
    std::multimap<Commit, Figures> m_backlog; ///< the backlog's groups that are left, by their first commits
    std::vector<Group> m_shipped;
    bool m_was_other = false, m_stopping = false;
    Clock::time_point m_last_success{};
};

} // namespace store::spool
