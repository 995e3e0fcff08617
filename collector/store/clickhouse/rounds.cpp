#include "rounds.h"

namespace store::clickhouse {

Rounds::~Rounds()
{
    m_is_ending = true;
    wake();
    if (m_thread.joinable())
        m_thread.join();
}

void Rounds::begin(std::function<void()> work)
{
    m_thread = std::thread(std::move(work));
}

bool Rounds::wait(Clock::duration time)
{
    std::unique_lock hold(m_lock);
    m_wake.wait_for(hold, time, [this] { return m_is_woken; });
    m_is_woken = false;
    return !m_is_ending;
}

Bounds Rounds::bounds(std::chrono::milliseconds time) const
{
    Bounds bounds{time};
    bounds.stop = &m_is_ending;
    return bounds;
}

void Rounds::wake()
{
    {
        std::lock_guard hold(m_lock);
        m_is_woken = true;
    }
    m_wake.notify_all();
}

} // namespace store::clickhouse
