#include "rates.h"

#include <algorithm>

namespace http {

bool Rates::take(const std::string& key, Clock::time_point now)
{
    if (m_per_second <= 0)
        return true;
    std::lock_guard hold(m_lock);
    if (m_buckets.size() >= m_forget_at)
        forget_full_ones(now);
    Bucket& bucket = m_buckets.try_emplace(key, Bucket{m_per_second * burst_seconds, now}).first->second;
    bucket.tokens = filled(bucket, now);
    bucket.when = now;
    if (bucket.tokens < 1)
        return false;
    bucket.tokens -= 1;
    return true;
}

double Rates::filled(const Bucket& bucket, Clock::time_point now) const
{
    const std::chrono::duration<double> since = now - bucket.when;
    return std::min(bucket.tokens + since.count() * m_per_second, m_per_second * burst_seconds);
}

void Rates::forget_full_ones(Clock::time_point now)
{
    std::erase_if(m_buckets,
                  [&](const auto& entry) { return filled(entry.second, now) >= m_per_second * burst_seconds; });
    m_forget_at = std::max<size_t>(4096, 2 * m_buckets.size());
}

size_t Rates::remembered() const
{
    std::lock_guard hold(m_lock);
    return m_buckets.size();
}

} // namespace http
