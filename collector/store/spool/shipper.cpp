#include "shipper.h"

namespace store::spool {

namespace {

constexpr std::chrono::milliseconds g_first_pause(100), g_longest_pause(1000);
constexpr unsigned g_most_vain = 8; // rounds
constexpr size_t g_least_lines = 1000;
constexpr std::chrono::milliseconds g_short_wait(1000), g_middle_wait(3000), g_longest_wait(10000);
constexpr uint64_t g_lines_a_second = 20000; // of a node that has much else to do

} // namespace

Shipper::Shipper(Parts& parts, uint32_t shard)
    : m_parts(parts),
      m_shard(shard),
      m_lane(*parts.lanes[shard]),
      m_clients(parts.clients(shard)),
      m_lines(parts.options.group_lines),
      m_preferred(parts.spool->collector()[0] % m_clients.size()), // so that collectors share the work
      m_thread([this] { work(); })
{}

Shipper::~Shipper()
{
    m_thread.join();
}

void Shipper::work()
{
    while (auto group = m_lane.next()) {
        if (!ship(*group))
            continue;
        group->checked.reset();
        group->shipped_at = Clock::now();
        m_parts.unchecked[m_shard] += group->origin != Group::Origin::again || std::exchange(group->is_aside, false);
        m_lane.shipped(std::move(*group));
        m_parts.on_shipped();
    }
}

Inserting::Patience Shipper::patience_for(const Group& group) const
{
    using Patience = Inserting::Patience;
    if (group.is_aside)
        return Patience::none;
    return m_vain < g_most_vain ? Patience::endless : Patience::for_many;
}

bool Shipper::ship(Group& group)
{
    std::optional<Load> read = read_load(*m_parts.spool, group, m_parts.screen);
    while (!read && !m_parts.is_leaving) {
        m_parts.pause(g_longest_pause); // the disk is at fault, which may pass
        read = read_load(*m_parts.spool, group, m_parts.screen);
    }
    if (!read)
        return false;
    Load& load = *read;
    for (auto pause = g_first_pause; !m_parts.is_leaving; pause = std::min(pause * 2, g_longest_pause)) {
        Inserting inserting(load, m_lines, patience_for(group), m_parts.is_leaving);
        const bool is_again = group.origin == Group::Origin::again && !group.is_aside;
        if (is_again ? put_everywhere(group, load) : try_replicas(group, load, inserting))
            return true;
        m_vain = inserting.is_vain() ? m_vain + 1 : 0;
        m_parts.pause(pause);
        if (m_lane.give_back(group))
            return false;
    }
    return false;
}

// What was shipped before is put on every replica that takes it: after a loss of parts a replica fetches new ones only
// behind those that are nowhere left, which may take it very long.
bool Shipper::put_everywhere(Group& group, Load& load)
{
    bool is_there = false;
    for (const auto wait : waits_for(group)) {
        for (size_t replica = 0; replica < m_clients.size() && !m_parts.is_leaving; ++replica) {
            Inserting inserting(load, m_lines, patience_for(group), m_parts.is_leaving);
            if (try_replica(inserting, load, replica, wait))
                continue;
            group.replica = replica;
            is_there = true;
        }
        if (is_there)
            break;
    }
    return is_there;
}

// A replica that hangs must not cost what an upload may wait: the other one is asked soon, and goes on being asked
// first. Where none answers so soon, it is not they that hang: they have much to do, and get more time.
std::vector<std::chrono::milliseconds> Shipper::waits_for(const Group& group) const
{
    const std::chrono::milliseconds work(group.lines * 1000 / g_lines_a_second);
    if (m_clients.size() == 1)
        return {g_longest_wait + work};
    return {g_short_wait + work, g_middle_wait + work, g_longest_wait + work};
}

bool Shipper::try_replicas(Group& group, const Load& load, Inserting& inserting)
{
    for (const auto wait : waits_for(group)) {
        bool is_late = false;
        for (size_t tried = 0; tried < m_clients.size() && !m_parts.is_leaving; ++tried) {
            const auto trouble = try_replica(inserting, load, m_preferred, wait);
            if (!trouble) {
                group.replica = m_preferred;
                put_aside(group, load, inserting);
                return true;
            }
            is_late = is_late || trouble->kind == Trouble::Kind::late;
            m_preferred = (m_preferred + 1) % m_clients.size();
        }
        if (!is_late)
            break;
    }
    return false;
}

// Marks go before the rows: whoever sees the rows of a day that was summed up must see that it is not as it was.
std::optional<Trouble> Shipper::try_replica(Inserting& inserting, const Load& load, size_t replica,
                                            std::chrono::milliseconds wait)
{
    clickhouse::Bounds bounds;
    bounds.time = wait;
    bounds.stop = &m_parts.is_leaving;
    std::optional<Trouble> trouble;
    if (m_parts.write_marks && !load.days.empty()) {
        if (auto marked = m_parts.write_marks(m_clients[replica], load.days, bounds); !marked)
            trouble = marked.fault();
    }
    if (!trouble)
        trouble = inserting.put(m_clients[replica], wait);
    // A node that is too slow for much may have time for less.
    if (!trouble)
        m_lines = std::min(m_lines * 2, m_parts.options.group_lines);
    else if (trouble->kind == Trouble::Kind::late && wait >= g_longest_wait)
        m_lines = std::max(m_lines / 4, g_least_lines);
    if (!m_parts.is_leaving)
        trouble ? m_parts.replicas.failed(m_shard, replica, Replicas::Task::writing, *trouble)
                : m_parts.replicas.answered(m_shard, replica, Replicas::Task::writing);
    return trouble;
}

void Shipper::put_aside(Group& group, const Load& load, const Inserting& inserting)
{
    std::map<size_t, std::vector<Spool::Refused>> blocks;
    for (const Inserting::Refused& refused : inserting.refused()) {
        const Load::Line& line = load.lines[static_cast<size_t>(refused.kind)][refused.line];
        blocks[line.block].push_back({line.number, refused.trouble.code, refused.trouble.text});
    }
    for (const auto& [block, lines] : blocks) {
        if (auto rest = m_parts.spool->put_aside(group.blocks[block], lines))
            group.blocks[block] = *rest;
    }
}

} // namespace store::spool
