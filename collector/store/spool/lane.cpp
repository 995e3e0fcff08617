#include "lane.h"

#include <algorithm>

namespace store::spool {

void Group::add(const BlockFacts& block)
{
    blocks.push_back(block);
    lines += block.lines;
    bytes += block.bytes;
}

void Lane::add(const BlockFacts& block)
{
    {
        std::lock_guard hold(m_lock);
        m_fresh.push_back({block, Clock::now()});
        m_fresh_lines += block.lines;
        m_fresh_bytes += block.bytes;
    }
    m_wake_shipper.notify_one();
}

void Lane::add(Group group)
{
    {
        std::lock_guard hold(m_lock);
        if (group.origin == Group::Origin::backlog)
            m_backlog.insert({group.blocks.front().commit, {group.blocks.size(), group.blocks.front().received_at}});
        m_others.push_back(std::move(group));
    }
    m_wake_shipper.notify_one();
}

bool Lane::is_ripe() const
{
    return !m_fresh.empty() && (m_fresh_lines >= m_bounds.lines || m_fresh_bytes >= m_bounds.bytes ||
                                Clock::now() - m_fresh.front().at >= m_bounds.time);
}

std::optional<Group> Lane::next()
{
    std::unique_lock hold(m_lock);
    for (;;) {
        if (m_stopping)
            return std::nullopt;
        if (is_ripe() && (m_others.empty() || m_was_other))
            return take_fresh();
        if (!m_others.empty()) {
            Group group = std::move(m_others.front());
            m_others.pop_front();
            m_was_other = true;
            return group;
        }
        m_fresh.empty() ? m_wake_shipper.wait(hold)
                        : void(m_wake_shipper.wait_until(hold, m_fresh.front().at + m_bounds.time));
    }
}

Group Lane::take_fresh()
{
    Group group;
    for (m_in_hand = 0; m_in_hand < m_fresh.size(); ++m_in_hand) {
        const BlockFacts& block = m_fresh[m_in_hand].block;
        if (m_in_hand != 0 &&
            (group.lines + block.lines > m_bounds.lines || group.bytes + block.bytes > m_bounds.bytes))
            break;
        group.add(block);
    }
    m_was_other = false;
    return group;
}

void Lane::shipped(Group group)
{
    {
        std::lock_guard hold(m_lock);
        m_last_success = Clock::now();
        if (group.origin == Group::Origin::fresh) {
            for (; m_in_hand != 0; --m_in_hand) {
                m_fresh_lines -= m_fresh.front().block.lines;
                m_fresh_bytes -= m_fresh.front().block.bytes;
                m_fresh.pop_front();
            }
        } else if (group.origin == Group::Origin::backlog) {
            m_backlog.erase(m_backlog.find(group.blocks.front().commit));
        }
        group.origin = Group::Origin::again;
        m_shipped.push_back(std::move(group));
    }
    m_wake_checker.notify_one();
}

bool Lane::give_back(const Group& group)
{
    std::lock_guard hold(m_lock);
    if (group.origin != Group::Origin::fresh || m_in_hand == m_fresh.size())
        return false;
    const BlockFacts& next = m_fresh[m_in_hand].block;
    if (group.lines + next.lines > m_bounds.lines || group.bytes + next.bytes > m_bounds.bytes)
        return false;
    m_in_hand = 0;
    return true;
}

std::vector<Group> Lane::take_shipped(std::chrono::milliseconds time)
{
    std::unique_lock hold(m_lock);
    if (time.count() != 0)
        m_wake_checker.wait_for(hold, time, [this] { return m_stopping; });
    return std::exchange(m_shipped, {});
}

void Lane::stop()
{
    {
        std::lock_guard hold(m_lock);
        m_stopping = true;
    }
    m_wake_shipper.notify_all();
    m_wake_checker.notify_all();
}

bool Lane::has_shipped(Commit commit) const
{
    std::lock_guard hold(m_lock);
    return m_fresh.empty() || m_fresh.front().block.commit > commit;
}

bool Lane::has_shipped_up_to(Commit commit) const
{
    std::lock_guard hold(m_lock);
    return (m_fresh.empty() || m_fresh.front().block.commit > commit) &&
           (m_backlog.empty() || m_backlog.begin()->first > commit);
}

std::optional<Clock::time_point> Lane::waiting_since() const
{
    std::lock_guard hold(m_lock);
    return m_fresh.empty() ? std::nullopt : std::optional(std::max(m_fresh.front().at, m_last_success));
}

Lane::Figures Lane::waiting() const
{
    std::lock_guard hold(m_lock);
    Figures figures{m_fresh.size(), m_fresh.empty() ? 0 : m_fresh.front().block.received_at};
    for (const auto& [commit, group] : m_backlog) {
        figures.blocks += group.blocks;
        figures.oldest = figures.oldest == 0 ? group.oldest : std::min(figures.oldest, group.oldest);
    }
    return figures;
}

} // namespace store::spool
