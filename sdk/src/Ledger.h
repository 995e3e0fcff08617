// What a session remembers of its deliveries: figures, waits, and what became of the batches that it tried.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Answers.h"
#include "Options.h"
#include "Outbox.h"
#include "lumo/mutex.h"

namespace AnalyticsSDK {

/// All waits are measured by a monotonic clock.
using DeliveryClock = std::chrono::steady_clock;

/// Counted since the session's start.
struct DeliveryFigures
{
    /// Only the thread that drives the session counts events, so no other count can come in between.
    void CountAccepted() { accepted.store(accepted.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }

    std::atomic<uint64_t> accepted{0}, failed{0}, delivered{0}, dropped{0};
    std::atomic<uint64_t> requests{0}, requestsFailed{0}, failuresInARow{0};
    std::atomic<int64_t> lastStatus{0}, lastRequest_ms{0};
    std::atomic<int64_t> synced_ms{0}; ///< when the newest batch was sealed that was forced onto the disk
};

/// Any thread.
class Ledger
{
public:
    /// The options must outlive this.
    explicit Ledger(const Options& options) : m_options(options) {}

    DeliveryFigures figures;

    /// Records a request and its answer in the figures and waits. @param now_ms when it was sent, since 1970 UTC
    void Enter(const Answer& answer, int64_t now_ms) LUMO_EXCLUDES(m_lock);
    /// Starts the back-off, or its next, longer wait.
    void BackOff() LUMO_EXCLUDES(m_lock);
    void Succeed() LUMO_EXCLUDES(m_lock);
    /// When the waits end; a time in the past when there is none.
    DeliveryClock::time_point BackOffEnd() const LUMO_EXCLUDES(m_lock);
    DeliveryClock::time_point RetryAfterEnd() const LUMO_EXCLUDES(m_lock);
    /// When the first of the batches that were set aside is due; none when there is none.
    std::optional<DeliveryClock::time_point> FirstAside() const LUMO_EXCLUDES(m_lock);

    bool MayCompress() const { return !m_plainOnly; }
    void RefuseCompression() { m_plainOnly = true; }

    /// The batches in the order in which to try them, without those that were taken. The next cycle begins behind the
    /// batch that ended the last one.
    /// @param all whether those that were set aside are tried too, after the others
    std::vector<BatchName> Order(const OutboxContents& contents, bool all) LUMO_EXCLUDES(m_lock);
    /// A batch that ended a cycle.
    void EndedBy(const BatchName& name) LUMO_EXCLUDES(m_lock);
    void SetAside(const BatchName& name) LUMO_EXCLUDES(m_lock);
    /// Taken by the server, and could not be deleted.
    void Taken(const BatchName& name) LUMO_EXCLUDES(m_lock);
    std::vector<BatchName> TakenOnes() const LUMO_EXCLUDES(m_lock);
    void Forget(const BatchName& name) LUMO_EXCLUDES(m_lock);
    /// Counts missing answers on working connections. True at the third in a row for the batch.
    bool WasSilentTooOften(const BatchName& name, bool silent) LUMO_EXCLUDES(m_lock);

    /// Why the last request failed; empty when it did not.
    std::string LastError() const LUMO_EXCLUDES(m_lock);
    void SetLastError(const std::string& reason) LUMO_EXCLUDES(m_lock);

private:
    struct Record
    {
        int silences = 0;
        bool taken = false;
        std::optional<DeliveryClock::time_point> asideUntil = {};
    };

    const Options& m_options;
    mutable lumo::mutex m_lock{lumo::mutex::fast};
    std::map<BatchName, Record> m_records LUMO_GUARDED_BY(m_lock);
    std::optional<BatchName> m_endedBy LUMO_GUARDED_BY(m_lock);
    int64_t m_limit_ms LUMO_GUARDED_BY(m_lock) = 0;
    DeliveryClock::time_point m_backOffEnd LUMO_GUARDED_BY(m_lock);
    DeliveryClock::time_point m_retryAfterEnd LUMO_GUARDED_BY(m_lock);
    std::string m_lastError LUMO_GUARDED_BY(m_lock);
    std::atomic<bool> m_plainOnly{false};
};

/// A random number, evenly distributed between half of a limit and the limit.
int64_t HalfToWhole(int64_t limit);

} // namespace AnalyticsSDK
