// The questions of a cluster, each a part of every shard and a sum of the parts.
#pragma once

#include "losses.h"
#include "reading.h"

#include "store/figures.h"

namespace store::clickhouse {

class Following;
class Walk;

class ClusterReading : public Reading
{
public:
    explicit ClusterReading(ReadingParts parts);
    ~ClusterReading() override;

    Result<Summary> summary(const Query& query, const Limit& limit) override;
    Result<std::vector<Point>> series(const Query& query, Step step, const Limit& limit) override;
    Result<Table<NameRow>> names(const Query& query, const Limit& limit) override;
    Result<Table<VersionRow>> versions(const Query& query, const Limit& limit) override;
    Result<Table<FactRow>> facts(const Query& query, const Limit& limit) override;
    Result<Table<PropertyRow>> properties(const Query& query, const Limit& limit) override;
    Result<Numbers> numbers(const Query& query, std::string_view key, const Limit& limit) override;
    Result<std::vector<PropertyPoint>> property_series(const Query& query, std::string_view key, Step step,
                                                       const Limit& limit) override;
    Result<Table<InstallationRow>> installations(const Query& query, const Limit& limit) override;
    Result<std::vector<EventRow>> timeline(const Query& query, const Limit& limit) override;
    Result<std::vector<RetentionRow>> retention(const Query& query, const Limit& limit) override;
    Result<std::vector<uint64_t>> funnel(const Query& query, std::span<const std::string> names,
                                         const Limit& limit) override;
    Result<Table<RejectRow>> rejects(const Query& query, const Limit& limit) override;
    Result<Health> health(const Limit& limit) override;
    Result<Cursor> end(const Limit& limit) override;
    Result<Receipts> receipts(const Query& query, Cursor after, const Limit& limit) override;
    std::vector<std::string> take_missing() override { return m_shards.take_missing(); }

private:
    enum class Days
    {
        open,  ///< rows tell of all
        closed ///< rollups tell of those they know
    };
    Filter filter_of(Shard& shard, const Query& query, Days days);

    /// Calls `ask(Shard&, const Filter&, Part&)` for every shard at once.
    template <class Part, class Ask>
    Result<std::vector<Part>> ask(const Query& query, const Limit& limit, Ask&& ask, Days days = Days::closed)
    {
        return m_shards.ask<Part>(limit,
                                  [&](Shard& shard, Part& part) { ask(shard, filter_of(shard, query, days), part); });
    }

    struct Losses
    {
        uint64_t rejects = 0, dropped = 0;
    };
    /// By the number of the hour of receipt, for the hours that the query's period touches.
    Result<std::map<int64_t, Losses>> losses(std::vector<LossesPart> parts, const Limit& limit);
    /// The same of parts that each have theirs as `lost`, which is taken from them.
    template <class Part>
    Result<std::map<int64_t, Losses>> losses(std::vector<Part>& parts, const Limit& limit)
    {
        std::vector<LossesPart> lost;
        for (Part& part : parts)
            lost.push_back(std::move(part.lost));
        return losses(std::move(lost), limit);
    }

    const ReadingParts m_parts;
    Shards m_shards;
    std::unique_ptr<Walk> m_spWalk;
    std::unique_ptr<Following> m_spFollowing;
};

/// Adds up the figures of shards that have a Part as a map by key.
template <class Map, class Add>
Map added(std::vector<Map>& parts, Add&& add)
{
    Map all;
    for (Map& part : parts) {
        for (auto& [key, figures] : part)
            add(all[key], figures);
    }
    return all;
}

} // namespace store::clickhouse
