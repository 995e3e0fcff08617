// The queue in front of a store and the one thread behind it, which commits uploads in groups.
//
// The thread never waits for more: it takes what is queued and commits it, in groups that end by GroupLimit. So one
// upload alone is answered after one commit, and many share one.
#pragma once

#include "store.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace store {

struct WriterLimits
{
    size_t uploads = 2000;            ///< waiting ones; more are refused
    size_t bytes = 128 * 1024 * 1024; ///< of waiting uploads (Upload::bytes)
    GroupLimit group;
};

struct WriterStatus
{
    size_t queued = 0; ///< uploads waiting or being written
    size_t queued_bytes = 0;
    uint64_t uploads = 0; ///< stored since the start
    uint64_t groups = 0;  ///< transactions, those included that failed
    uint64_t events = 0, rejects = 0, known = 0;
    uint64_t failures = 0;                    ///< uploads that could not be stored, or not safely
    std::optional<Fault> fault;               ///< of the last one that was answered, when it failed
    std::chrono::microseconds last_commit{0}; ///< how long the last group took in all
};

class Writer
{
public:
    /// Called once for each upload that was taken, after the commit and Writing::settle or their failure: on the
    /// writer's thread or one of the store's. Must not block or throw.
    using Completion = std::function<void(const Result<Receipt>& receipt)>;
    using Task = std::function<void(Writing& writing)>;

    /// Starts the thread.
    Writer(std::unique_ptr<Writing> writing, const WriterLimits& limits = {});
    /// As stop().
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Queues an upload. Any thread; never waits.
    /// @return false when the queue is full or stop() was called: then the upload and the completion are left as they
    /// were
    bool submit(Upload&& upload, Completion&& completion);

    /// Queues work that is to run on the writer's thread between two groups (retention in steps, forget). Any thread.
    /// Tasks run in turn with groups, so a row of them does not hold uploads up.
    /// @return false after stop()
    bool run(Task&& task);

    /// Takes nothing more, commits what is queued, runs no further task, ends the thread and waits for the last
    /// completion. Any thread but the writer's own; a second call waits for the first.
    void stop();

    WriterStatus status() const;
    /// See Writing::door. Any thread.
    std::optional<Fault> door() { return m_spWriting->door(); }
    std::optional<Fault> door_for(const Upload& upload) { return m_spWriting->door_for(upload); }

private:
    struct Waiting
    {
        Upload upload;
        Completion completion;
        size_t bytes;
    };

    void work();
    std::vector<Waiting> take_group();
    void write_group(std::vector<Waiting>& group);
    void leave_queue(std::span<const Waiting> written, std::chrono::microseconds taken);
    void settle(std::span<Waiting> written, const Result<std::vector<Receipt>>& receipts);
    void answer(const Completion& completion, const Result<Receipt>& receipt);

    const WriterLimits m_limits;
    mutable std::mutex m_lock;
    std::condition_variable m_wake;
    std::deque<Waiting> m_waiting;
    std::deque<Task> m_tasks;
    WriterStatus m_status;
    bool m_stopping = false;
    std::mutex m_join;
    std::unique_ptr<Writing> m_spWriting; ///< its last completions use what stands above
    std::thread m_thread;
};

} // namespace store
