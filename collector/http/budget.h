/// @file
/// The memory that bodies in flight may take, counted as their bytes arrive.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <unordered_map>

namespace http {

/// One budget for all connections. Network thread only.
///
/// An address holds at most an eighth, and bodies past 1 MiB together at most half: a few slow senders of large bodies
/// cannot shut the door for all. Where the budget is used up, the slowest body is cut.
class Budget
{
public:
    using Clock = std::chrono::steady_clock;
    static constexpr uint64_t small_body = 1 << 20;

    /// A body's share of the budget, given back when it goes.
    class Share
    {
    public:
        /// @param cut called when this body must make way; its reader then answers 503 and lets the share go
        Share(Budget& budget, std::string address, std::function<void()> cut, Clock::time_point now = Clock::now());
        ~Share();
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        /// Charges `bytes` more. False when this body itself is to be cut: the slowest of those that stand in the way.
        bool charge(uint64_t bytes, Clock::time_point now = Clock::now());
        /// The body is whole: it can no longer be the slow one.
        void settle() { m_cut = nullptr; }

    private:
        friend class Budget;
        double speed(Clock::time_point now) const;
        Budget& m_budget;
        const std::string m_address;
        std::function<void()> m_cut;
        const Clock::time_point m_begun;
        uint64_t m_bytes = 0;
        bool m_is_cut = false;
        std::list<Share*>::iterator m_place;
    };

    explicit Budget(uint64_t bytes) : m_limit(bytes) {}
    uint64_t used() const { return m_used; }
    uint64_t cuts() const { return m_cuts; }

private:
    enum class Full
    {
        nothing,
        address,
        large,
        all
    };
    Full full_by(const Share& share, uint64_t bytes) const;
    Share* slowest(const Share& asking, Full full, uint64_t bytes, Clock::time_point now);
    void add(Share& share, uint64_t bytes);
    void release(Share& share);

    const uint64_t m_limit;
    uint64_t m_used = 0, m_large = 0, m_cuts = 0;
    std::unordered_map<std::string, uint64_t> m_by_address;
    std::list<Share*> m_shares;
};

} // namespace http
