// A walk over all events in the order of their receipt, over all shards, in bounded memory: exports.
#pragma once

#include "event_rows.h"
#include "filter.h"
#include "shards.h"

#include <deque>

namespace store::clickhouse {

/// A place in the order of receipt: behind this event.
struct WalkPlace
{
    uint64_t receipt = std::numeric_limits<uint64_t>::max(); ///< before the first event
    BatchId batch{};
    uint32_t place = 0;
    uint64_t line = 0;

    /// As a cursor, and back; a text that is none stands for the beginning.
    Cursor text() const;
    static WalkPlace from(const Cursor& cursor);
    /// A condition that events behind it meet.
    std::string behind() const;
};

/// What is read ahead of one query. One thread at a time.
class Walk
{
public:
    using FilterOf = std::function<Filter(Shard&)>;

    Walk(const Query& query, const WalkPlace& after, size_t shards);

    /// Whether it can go on for this query at this place.
    bool stands_at(const Query& query, const Cursor& after) const;
    /// The next events, at most `limit`.
    Result<Receipts> next(Shards& shards, const FilterOf& filter_of, size_t most, const Limit& limit);

private:
    struct Ahead
    {
        std::deque<Received> rows;
        WalkPlace place; ///< behind what was read of this shard
        bool is_over = false;
    };

    std::optional<Fault> read(Shards& shards, const FilterOf& filter_of, const Limit& limit);

    const Query m_query;
    WalkPlace m_place;
    std::vector<Ahead> m_ahead; ///< by shard
};

} // namespace store::clickhouse
