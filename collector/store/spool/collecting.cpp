#include "collecting.h"

#include <algorithm>
#include <map>

namespace store::spool {

Collecting::Collecting(std::shared_ptr<const clickhouse::Layout> layout, const ClusterOptions& options, Screen screen,
                       WriteMarks write_marks)
    : m_parts(std::move(layout), options, std::move(screen), std::move(write_marks))
{}

Result<std::shared_ptr<Collecting>> Collecting::start(std::shared_ptr<const clickhouse::Layout> layout,
                                                      const ClusterOptions& options, Screen screen,
                                                      WriteMarks write_marks)
{
    const std::string home = layout->database + " of " + std::to_string(layout->shards.size()) +
                             (layout->shards.size() == 1 ? " shard" : " shards");
    auto spool = Spool::open(options.spool, home, options.spool_bytes);
    if (!spool)
        return spool.fault();
    std::shared_ptr<Collecting> collecting(
        new Collecting(std::move(layout), options, std::move(screen), std::move(write_marks)));
    collecting->m_parts.spool = *spool;
    collecting->begin();
    return collecting;
}

// What an earlier process left: groups that all replicas had go on waiting for their time, all else is shipped.
void Collecting::begin()
{
    Contents contents = m_parts.spool->contents();
    std::map<int64_t, BlockFacts> blocks;
    for (const BlockFacts& block : contents.blocks)
        blocks.emplace(block.id, block);
    std::vector<std::list<Group>> kept(m_parts.lanes.size());
    for (const KeptGroup& one : contents.groups) {
        Group group;
        group.origin = Group::Origin::again;
        group.checked = one.checked;
        for (const int64_t id : one.blocks) {
            if (const auto found = blocks.find(id); found != blocks.end()) {
                group.add(found->second);
                blocks.erase(found);
            }
        }
        if (!group.blocks.empty())
            kept[group.blocks.front().shard].push_back(std::move(group));
    }
    std::map<std::pair<uint32_t, bool>, Group> open; // by shard, and whether the lines stood aside
    for (const auto& [id, block] : blocks) {
        Group& group = open[{block.shard, block.code != 0}];
        group.is_aside = block.code != 0;
        group.origin = group.is_aside ? Group::Origin::again : Group::Origin::backlog;
        group.add(block);
        if (group.lines >= m_parts.options.group_lines || group.bytes >= GroupBounds().bytes)
            m_parts.lanes[block.shard]->add(std::exchange(group, {}));
    }
    for (auto& [place, group] : open) {
        if (!group.blocks.empty())
            m_parts.lanes[place.first]->add(std::move(group));
    }
    m_spSettling = std::make_unique<Settling>(m_parts.lanes, m_parts.options.answer_wait);
    m_parts.on_shipped = [this] { m_spSettling->look(); };
    for (uint32_t shard = 0; shard < m_parts.lanes.size(); ++shard) {
        m_checkers.push_back(std::make_unique<Checker>(m_parts, shard, std::move(kept[shard])));
        m_shippers.push_back(std::make_unique<Shipper>(m_parts, shard));
    }
}

Collecting::~Collecting()
{
    m_parts.is_leaving = true;
    for (const auto& lane : m_parts.lanes)
        lane->stop();
    m_shippers.clear();
    m_checkers.clear();
    m_spSettling.reset();
}

bool Collecting::wait_until_shipped(std::chrono::milliseconds wait) const
{
    const auto is_done = [](const auto& lane) { return lane->waiting().blocks == 0; };
    const auto until = Clock::now() + wait;
    while (!std::all_of(m_parts.lanes.begin(), m_parts.lanes.end(), is_done)) {
        if (Clock::now() >= until)
            return false;
        m_parts.pause(std::chrono::milliseconds(20));
    }
    return true;
}

std::optional<Fault> Collecting::door() const
{
    if (m_parts.spool->is_full())
        return Fault{FaultKind::full, "The spool has reached its limit."};
    std::optional<Fault> fault;
    for (size_t shard = 0; shard < m_parts.lanes.size(); ++shard) {
        if (!(fault = door(shard)))
            return std::nullopt;
    }
    return fault;
}

std::optional<Fault> Collecting::door(size_t shard) const
{
    const auto since = m_parts.lanes[shard]->waiting_since();
    if (m_parts.options.answer == AnswerBy::spool || !since || Clock::now() - *since <= m_parts.options.answer_wait)
        return std::nullopt;
    return Fault{FaultKind::busy, "No replica of shard " + std::to_string(shard + 1) + " takes anything."};
}

ClusterStatus Collecting::status() const
{
    ClusterStatus status;
    status.spool = m_parts.spool->status();
    for (size_t shard = 0; shard < m_parts.lanes.size(); ++shard) {
        const Lane::Figures waiting = m_parts.lanes[shard]->waiting();
        Milliseconds& oldest = status.spool.oldest_waiting;
        status.spool.blocks_waiting += waiting.blocks;
        if (waiting.oldest != 0)
            oldest = oldest == 0 ? waiting.oldest : std::min(oldest, waiting.oldest);
        status.spool.groups_unchecked += m_parts.unchecked[shard];
        if (auto fault = door(shard))
            status.shut.push_back(*fault);
    }
    status.spool.too_old = m_parts.too_old;
    status.spool.forgotten = m_parts.forgotten;
    status.replicas = m_parts.replicas.status();
    status.door = door();
    return status;
}

} // namespace store::spool
