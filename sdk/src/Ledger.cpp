#include "Ledger.h"

#include <algorithm>
#include <random>

namespace AnalyticsSDK {

constexpr int most_silences = 3;

int64_t HalfToWhole(int64_t limit)
{
    static thread_local std::minstd_rand random{std::random_device{}()};
    return std::uniform_int_distribution<int64_t>(limit / 2, limit)(random);
}

void Ledger::Enter(const Answer& answer, int64_t now_ms)
{
    ++figures.requests;
    figures.lastStatus = answer.status;
    figures.lastRequest_ms = now_ms;
    const bool success = Judge(answer, false) == Verdict::taken;
    if (success)
        figures.failuresInARow = 0;
    else
        ++figures.requestsFailed;
    if (IsFailure(answer))
        ++figures.failuresInARow;
    lumo::scoped_lock hold(m_lock);
    m_lastError = success ? "" : answer.reason;
    if (!success && answer.retryAfter_ms > 0)
        m_retryAfterEnd = DeliveryClock::now() + std::chrono::milliseconds(answer.retryAfter_ms);
}

void Ledger::BackOff()
{
    const int64_t most = m_options[Option::retry_most_ms];
    lumo::scoped_lock hold(m_lock);
    m_limit_ms = std::min(m_limit_ms == 0 ? m_options[Option::retry_first_ms] : 2 * m_limit_ms, most);
    m_backOffEnd = DeliveryClock::now() + std::chrono::milliseconds(HalfToWhole(m_limit_ms));
}

void Ledger::Succeed()
{
    lumo::scoped_lock hold(m_lock);
    m_limit_ms = 0;
    m_backOffEnd = {};
}

DeliveryClock::time_point Ledger::BackOffEnd() const
{
    lumo::scoped_lock hold(m_lock);
    return m_backOffEnd;
}

DeliveryClock::time_point Ledger::RetryAfterEnd() const
{
    lumo::scoped_lock hold(m_lock);
    return m_retryAfterEnd;
}

std::optional<DeliveryClock::time_point> Ledger::FirstAside() const
{
    lumo::scoped_lock hold(m_lock);
    std::optional<DeliveryClock::time_point> first;
    for (const auto& [name, record] : m_records)
        if (record.asideUntil && (!first || *record.asideUntil < *first))
            first = record.asideUntil;
    return first;
}

std::vector<BatchName> Ledger::Order(const OutboxContents& contents, bool all)
{
    lumo::scoped_lock hold(m_lock);
    // Batches that are gone from the folder need no record. Both lists are sorted.
    auto waiting = contents.batches.begin();
    std::erase_if(m_records, [&](const auto& record) {
        while (waiting != contents.batches.end() && waiting->name < record.first)
            ++waiting;
        return waiting == contents.batches.end() || waiting->name != record.first;
    });
    const auto now = DeliveryClock::now();
    std::vector<BatchName> order, aside;
    for (const auto& batch : contents.batches) {
        const auto record = m_records.find(batch.name);
        if (record != m_records.end() && record->second.taken)
            continue;
        const bool is_aside = record != m_records.end() && record->second.asideUntil;
        if (!is_aside)
            order.push_back(batch.name);
        else if (all || *record->second.asideUntil <= now)
            aside.push_back(batch.name);
    }
    if (m_endedBy)
        std::rotate(order.begin(), std::upper_bound(order.begin(), order.end(), *m_endedBy), order.end());
    m_endedBy.reset();
    order.insert(order.end(), aside.begin(), aside.end());
    return order;
}

void Ledger::EndedBy(const BatchName& name)
{
    lumo::scoped_lock hold(m_lock);
    m_endedBy = name;
}

void Ledger::SetAside(const BatchName& name)
{
    lumo::scoped_lock hold(m_lock);
    m_records[name].asideUntil = DeliveryClock::now() + std::chrono::milliseconds(m_options[Option::retry_most_ms]);
}

void Ledger::Taken(const BatchName& name)
{
    lumo::scoped_lock hold(m_lock);
    m_records[name] = {.taken = true};
}

std::vector<BatchName> Ledger::TakenOnes() const
{
    lumo::scoped_lock hold(m_lock);
    std::vector<BatchName> names;
    for (const auto& [name, record] : m_records)
        if (record.taken)
            names.push_back(name);
    return names;
}

void Ledger::Forget(const BatchName& name)
{
    lumo::scoped_lock hold(m_lock);
    m_records.erase(name);
}

bool Ledger::WasSilentTooOften(const BatchName& name, bool silent)
{
    lumo::scoped_lock hold(m_lock);
    const auto record = m_records.find(name);
    if (!silent) {
        if (record != m_records.end())
            record->second.silences = 0;
        return false;
    }
    int& silences = m_records[name].silences;
    silences = (silences + 1) % most_silences;
    return silences == 0;
}

std::string Ledger::LastError() const
{
    lumo::scoped_lock hold(m_lock);
    return m_lastError;
}

void Ledger::SetLastError(const std::string& reason)
{
    lumo::scoped_lock hold(m_lock);
    m_lastError = reason;
}

} // namespace AnalyticsSDK
