// What is newly stored, whoever stored it and whenever it was logged or received: the live stream.
//
// The engine keeps rows in parts: an insert makes one of level 0, and merges make new ones of old. A part that was not
// met before is read once: one of level 0 wholly, as all of it is new here; of a merged one the rows that were stored a
// short time ago and have not been shown.
#pragma once

#include "event_rows.h"
#include "filter.h"
#include "shards.h"

#include <deque>
#include <unordered_map>

namespace store::clickhouse {

/// One thread at a time.
class Following
{
public:
    using FilterOf = std::function<Filter(Shard&)>;

    explicit Following(size_t shards);

    /// Passes over everything that is there.
    std::optional<Fault> begin(Shards& shards, const FilterOf& filter_of, const Limit& limit);
    /// What was stored since, at most `most` rows.
    Result<Receipts> next(Shards& shards, const FilterOf& filter_of, size_t most, const Limit& limit);

    static constexpr const char* g_cursor = "live";

private:
    struct Part
    {
        std::string name;
        uint32_t level = 0, modified = 0;
    };
    struct Seen
    {
        uint32_t now = 0; ///< the node's clock, in seconds, at the last look; 0: nothing was looked at
        std::unordered_map<std::string, uint32_t> parts; ///< by name: when they were made
        std::unordered_map<std::string, uint32_t> rows;  ///< by the hash of their place: when they were stored
    };
    struct Fresh
    {
        uint32_t now = 0;
        std::vector<Part> parts;
        std::vector<std::pair<Received, uint32_t>> rows; ///< with the time of storing
    };

    std::optional<Fault> look(Shards& shards, const FilterOf& filter_of, bool is_beginning, const Limit& limit);
    void take(Seen& seen, Fresh& fresh, bool is_beginning);

    std::vector<Seen> m_seen; ///< by shard
    std::deque<EventRow> m_rows;
};

} // namespace store::clickhouse
