#include "settling.h"

#include <algorithm>

namespace store::spool {

Need::Shard& Need::of(uint32_t shard)
{
    const auto found =
        std::find_if(shards.begin(), shards.end(), [shard](const Shard& one) { return one.shard == shard; });
    return found != shards.end() ? *found : shards.emplace_back(Shard{shard});
}

Settling::Settling(const std::vector<std::unique_ptr<Lane>>& lanes, std::chrono::milliseconds wait)
    : m_lanes(lanes), m_wait(wait), m_thread([this] { work(); })
{}

Settling::~Settling()
{
    {
        std::lock_guard hold(m_lock);
        m_stopping = true;
    }
    m_wake.notify_one();
    m_thread.join();
    end([](const Waiting&) { return true; },
        Fault{FaultKind::busy, "The collector leaves; the upload is in its spool."});
}

bool Settling::is_settled(const Need& need) const
{
    return std::all_of(need.shards.begin(), need.shards.end(), [this](const Need::Shard& one) {
        const Lane& lane = *m_lanes[one.shard];
        return (one.own == 0 || lane.has_shipped(one.own)) && (one.known == 0 || lane.has_shipped_up_to(one.known));
    });
}

void Settling::add(Need need, Done done)
{
    {
        std::lock_guard hold(m_lock);
        // Looked at under the lock: a group shipped in between would be missed.
        if (!is_settled(need)) {
            m_waiting.push_back({std::move(need), std::move(done), Clock::now() + m_wait});
            done = nullptr;
        }
    }
    done ? done(std::nullopt) : m_wake.notify_one();
}

void Settling::look()
{
    end([this](const Waiting& waiting) { return is_settled(waiting.need); }, std::nullopt);
}

void Settling::wait()
{
    std::unique_lock hold(m_lock);
    m_told.wait(hold, [this] { return m_waiting.empty() && m_telling == 0; });
}

void Settling::work()
{
    std::unique_lock hold(m_lock);
    while (!m_stopping) {
        if (m_waiting.empty()) {
            m_wake.wait(hold);
        } else {
            const Clock::time_point until = m_waiting.front().until; // a copy: the entry may end during the wait
            m_wake.wait_until(hold, until);
        }
        hold.unlock();
        end([](const Waiting& waiting) { return waiting.until <= Clock::now(); },
            Fault{FaultKind::busy, "No replica has taken the upload in time; it stays in the spool."});
        hold.lock();
    }
}

template <class Ends>
void Settling::end(Ends&& ends, const std::optional<Fault>& fault)
{
    std::list<Waiting> ended;
    {
        std::lock_guard hold(m_lock);
        for (auto at = m_waiting.begin(); at != m_waiting.end();) {
            const auto next = std::next(at);
            if (ends(*at))
                ended.splice(ended.end(), m_waiting, at);
            at = next;
        }
        m_telling += ended.size();
    }
    for (Waiting& waiting : ended)
        waiting.done(fault);
    std::lock_guard hold(m_lock);
    m_telling -= ended.size();
    m_told.notify_all();
}

} // namespace store::spool
