#include "feed.h"

namespace http {

void Feed::push(std::string message)
{
    std::lock_guard hold(m_lock);
    if (m_messages.size() == kept) {
        m_messages.pop_front();
        ++m_dropped;
    }
    m_messages.push_back(std::move(message));
    if (m_wake)
        m_wake(); // under the lock: after on_push(null) nobody calls it any more
}

std::string Feed::take()
{
    std::lock_guard hold(m_lock);
    std::string all;
    for (const std::string& message : m_messages)
        all += message;
    m_messages.clear();
    return all;
}

void Feed::on_push(std::function<void()> wake)
{
    std::lock_guard hold(m_lock);
    m_wake = std::move(wake);
}

size_t Feed::dropped() const
{
    std::lock_guard hold(m_lock);
    return m_dropped;
}

} // namespace http
