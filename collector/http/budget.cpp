#include "budget.h"

#include <algorithm>

namespace http {

Budget::Share::Share(Budget& budget, std::string address, std::function<void()> cut, Clock::time_point now)
    : m_budget(budget), m_address(std::move(address)), m_cut(std::move(cut)), m_begun(now)
{
    m_place = budget.m_shares.insert(budget.m_shares.end(), this);
}

Budget::Share::~Share()
{
    m_budget.release(*this);
    m_budget.m_shares.erase(m_place);
}

// At least a second counts: whoever has just begun is not the slowest for it.
double Budget::Share::speed(Clock::time_point now) const
{
    const std::chrono::duration<double> since = now - m_begun;
    return static_cast<double>(m_bytes) / std::max(since.count(), 1.0);
}

bool Budget::Share::charge(uint64_t bytes, Clock::time_point now)
{
    if (m_is_cut)
        return false;
    for (Full full; (full = m_budget.full_by(*this, bytes)) != Full::nothing;) {
        Share* slowest = m_budget.slowest(*this, full, bytes, now);
        ++m_budget.m_cuts;
        if (slowest == nullptr || slowest == this)
            return false;
        // Its bytes count as given back now: the reader lets go of them in its next step.
        m_budget.release(*slowest);
        slowest->m_is_cut = true;
        slowest->m_cut();
    }
    m_budget.add(*this, bytes);
    return true;
}

Budget::Full Budget::full_by(const Share& share, uint64_t bytes) const
{
    const auto held = m_by_address.find(share.m_address);
    if ((held == m_by_address.end() ? 0 : held->second) + bytes > m_limit / 8)
        return Full::address;
    const uint64_t after = share.m_bytes + bytes;
    const uint64_t becomes_large = after <= small_body ? 0 : share.m_bytes <= small_body ? after : bytes;
    if (m_large + becomes_large > m_limit / 2)
        return Full::large;
    return m_used + bytes > m_limit ? Full::all : Full::nothing;
}

/// The slowest body whose end would make room for `bytes`; null when none would. Small ones are left alone by that, and
/// those that are whole are not cut any more.
Budget::Share* Budget::slowest(const Share& asking, Full full, uint64_t bytes, Clock::time_point now)
{
    Share* slowest = nullptr;
    for (Share* share : m_shares) {
        if (share->m_cut == nullptr || share->m_is_cut || share->m_bytes < bytes)
            continue;
        if (full == Full::address && share->m_address != asking.m_address)
            continue;
        if (full == Full::large && share->m_bytes <= small_body && share != &asking)
            continue;
        if (slowest == nullptr || share->speed(now) < slowest->speed(now))
            slowest = share;
    }
    return slowest;
}

void Budget::add(Share& share, uint64_t bytes)
{
    const uint64_t after = share.m_bytes + bytes;
    if (after > small_body)
        m_large += share.m_bytes > small_body ? bytes : after;
    share.m_bytes = after;
    m_used += bytes;
    m_by_address[share.m_address] += bytes;
}

void Budget::release(Share& share)
{
    m_used -= share.m_bytes;
    if (share.m_bytes > small_body)
        m_large -= share.m_bytes;
    const auto held = m_by_address.find(share.m_address);
    if (held != m_by_address.end() && (held->second -= share.m_bytes) == 0)
        m_by_address.erase(held);
    share.m_bytes = 0;
}

} // namespace http
