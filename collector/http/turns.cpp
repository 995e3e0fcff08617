#include "turns.h"

namespace http {

Turns::Turns(unsigned threads, size_t most) : m_most(most)
{
    for (unsigned i = 0; i < (threads > 0 ? threads : 1); ++i)
        m_threads.emplace_back([this] { work(); });
}

Turns::~Turns()
{
    stop();
}

bool Turns::add(const std::string& client, Job job)
{
    {
        std::lock_guard hold(m_lock);
        if (m_stopping || m_waiting >= m_most)
            return false;
        std::deque<Job>& own = m_jobs[client];
        if (own.empty())
            m_order.push_back(client);
        own.push_back(std::move(job));
        ++m_waiting;
    }
    m_wake.notify_one();
    return true;
}

/// The first job of the client whose turn it is; the client goes to the end of the row. An empty one ends the thread.
Turns::Job Turns::next()
{
    std::unique_lock hold(m_lock);
    m_wake.wait(hold, [this] { return m_waiting > 0 || m_stopping; });
    if (m_waiting == 0)
        return nullptr;
    std::string client = std::move(m_order.front());
    m_order.pop_front();
    const auto own = m_jobs.find(client);
    Job job = std::move(own->second.front());
    own->second.pop_front();
    --m_waiting;
    if (own->second.empty())
        m_jobs.erase(own);
    else
        m_order.push_back(std::move(client));
    return job;
}

void Turns::work()
{
    while (Job job = next())
        job();
}

void Turns::stop()
{
    {
        std::lock_guard hold(m_lock);
        m_stopping = true;
    }
    m_wake.notify_all();
    for (std::thread& thread : m_threads)
        if (thread.joinable())
            thread.join();
}

size_t Turns::waiting() const
{
    std::lock_guard hold(m_lock);
    return m_waiting;
}

} // namespace http
