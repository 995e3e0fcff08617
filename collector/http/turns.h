/// @file
/// A pool of threads that takes turns between clients: who sends much waits for himself, not the others for him.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace http {

/// Any thread may add; jobs run on the pool's own threads and must not throw.
class Turns
{
public:
    using Job = std::function<void()>;

    /// @param threads at least 1 @param most the jobs that may wait; more are refused
    Turns(unsigned threads, size_t most);
    /// As stop().
    ~Turns();
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;

    /// @param client whose turn the job takes @return false when too many wait, or after stop()
    bool add(const std::string& client, Job job);
    /// Takes no more, runs what waits, ends the threads.
    void stop();
    /// How many wait.
    size_t waiting() const;

private:
    void work();
    Job next();

    const size_t m_most;
    mutable std::mutex m_lock;
    std::condition_variable m_wake;
    std::unordered_map<std::string, std::deque<Job>> m_jobs; ///< by client; never an empty queue
    std::deque<std::string> m_order;                         ///< the clients that wait, whose turn is next in front
    size_t m_waiting = 0;
    bool m_stopping = false;
    std::vector<std::thread> m_threads;
};

} // namespace http
