/// @file
/// The messages of one live stream: whoever has news pushes them, the connection takes them out.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace http {

/// Any thread. Bounded: a reader that is too slow loses the oldest messages, never the sender's time.
class Feed
{
public:
    /// Adds a message, ready to be sent as it stands.
    void push(std::string message);
    /// Takes out all that waits, joined; empty when nothing does.
    std::string take();
    /// @param wake called after each push(); null takes it back. It must not call the feed.
    void on_push(std::function<void()> wake);
    /// How many messages were dropped because nobody took them in time.
    size_t dropped() const;

private:
    static constexpr size_t kept = 1000;
    mutable std::mutex m_lock;
    std::deque<std::string> m_messages;
    std::function<void()> m_wake;
    size_t m_dropped = 0;
};

} // namespace http
