/// @file
/// How often somebody may come: one bucket of tokens for each key (an address, an installation).
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

namespace http {

/// Any thread. A bucket refills evenly and holds five seconds' worth, so that bursts pass and floods do not.
class Rates
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param per_second what a key may have in the long run; 0 means no limit
    explicit Rates(double per_second) : m_per_second(per_second) {}
    /// Takes one token of the key's bucket; false when it is empty.
    bool take(const std::string& key, Clock::time_point now = Clock::now());
    /// How many keys are remembered: a full bucket is forgotten, so quiet ones cost nothing.
    size_t remembered() const;

private:
    struct Bucket
    {
        double tokens;
        Clock::time_point when;
    };
    double filled(const Bucket& bucket, Clock::time_point now) const;
    void forget_full_ones(Clock::time_point now);

    static constexpr double burst_seconds = 5;
    const double m_per_second;
    mutable std::mutex m_lock;
    std::unordered_map<std::string, Bucket> m_buckets;
    size_t m_forget_at = 4096; ///< at this many keys the full buckets are looked for
};

} // namespace http
