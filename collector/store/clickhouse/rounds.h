// A thread that does its work again and again until its owner goes.
#pragma once

#include "client.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace store::clickhouse {

/// The last member of whoever owns the work: it ends before what the work uses.
class Rounds
{
public:
    Rounds() = default;
    /// Ends the thread: its questions are given up, its wait is over.
    ~Rounds();
    Rounds(const Rounds&) = delete;
    Rounds& operator=(const Rounds&) = delete;

    /// Calls `work` once, on a thread of its own.
    void begin(std::function<void()> work);

    /// For the work: waits for the time, or for a wake(). False: return.
    bool wait(Clock::duration time);
    bool is_ending() const { return m_is_ending; }
    /// Of a question that the end cuts short.
    Bounds bounds(std::chrono::milliseconds time) const;

    /// Ends a wait, or the next one where none is under way. Any thread.
    void wake();

private:
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_is_woken = false;
    std::atomic<bool> m_is_ending{false};
    std::thread m_thread;
};

} // namespace store::clickhouse
