#include "writer.h"

#include <algorithm>

namespace store {

Writer::Writer(std::unique_ptr<Writing> writing, const WriterLimits& limits)
    : m_limits(limits), m_spWriting(std::move(writing)), m_thread([this] { work(); })
{}

Writer::~Writer()
{
    stop();
}

bool Writer::submit(Upload&& upload, Completion&& completion)
{
    size_t bytes = upload.bytes();
    {
        std::lock_guard hold(m_lock);
        // Deliberate: an upload alone is taken whatever its size, else one past the limit could never be.
        bool room = m_status.queued == 0 ||
                    (m_status.queued < m_limits.uploads && m_status.queued_bytes + bytes <= m_limits.bytes);
        if (m_stopping || !room)
            return false;
        m_waiting.push_back({std::move(upload), std::move(completion), bytes});
        ++m_status.queued;
        m_status.queued_bytes += bytes;
    }
    m_wake.notify_one();
    return true;
}

bool Writer::run(Task&& task)
{
    {
        std::lock_guard hold(m_lock);
        if (m_stopping)
            return false;
        m_tasks.push_back(std::move(task));
    }
    m_wake.notify_one();
    return true;
}

void Writer::stop()
{
    {
        std::lock_guard hold(m_lock);
        m_stopping = true;
    }
    m_wake.notify_one();
    std::lock_guard hold(m_join);
    if (m_thread.joinable())
        m_thread.join();
    m_spWriting->end_settling();
}

WriterStatus Writer::status() const
{
    std::lock_guard hold(m_lock);
    return m_status;
}

void Writer::work()
{
    std::unique_lock hold(m_lock);
    for (;;) {
        m_wake.wait(hold, [this] { return m_stopping || !m_waiting.empty() || !m_tasks.empty(); });
        if (!m_waiting.empty()) {
            std::vector<Waiting> group = take_group();
            hold.unlock();
            write_group(group);
            hold.lock();
        }
        if (!m_tasks.empty() && !m_stopping) {
            Task task = std::move(m_tasks.front());
            m_tasks.pop_front();
            hold.unlock();
            task(*m_spWriting);
            hold.lock();
        }
        if (m_stopping && m_waiting.empty())
            return;
    }
}

// Called with the lock held.
std::vector<Writer::Waiting> Writer::take_group()
{
    std::vector<Waiting> group;
    while (!m_waiting.empty() && group.size() < m_limits.group.uploads) {
        group.push_back(std::move(m_waiting.front()));
        m_waiting.pop_front();
    }
    return group;
}

// The store may take fewer than it is given, so the rest follows in transactions of their own.
void Writer::write_group(std::vector<Waiting>& group)
{
    std::vector<const Upload*> uploads;
    uploads.reserve(group.size());
    for (const Waiting& waiting : group)
        uploads.push_back(&waiting.upload);
    for (size_t done = 0; done < group.size();) {
        auto start = Clock::now();
        auto receipts = m_spWriting->write(std::span(uploads).subspan(done), m_limits.group);
        size_t count = receipts ? receipts->size() : group.size() - done;
        std::span<Waiting> written = std::span(group).subspan(done, count);
        leave_queue(written, std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start));
        settle(written, receipts);
        done += count;
    }
}

void Writer::leave_queue(std::span<const Waiting> written, std::chrono::microseconds taken)
{
    std::lock_guard hold(m_lock);
    ++m_status.groups;
    m_status.last_commit = taken;
    m_status.queued -= written.size();
    for (const Waiting& waiting : written)
        m_status.queued_bytes -= waiting.bytes;
}

// What was written may have to get to another machine before it is answered; the next group does not wait for that.
void Writer::settle(std::span<Waiting> written, const Result<std::vector<Receipt>>& receipts)
{
    for (size_t i = 0; i < written.size(); ++i) {
        if (!receipts) {
            answer(written[i].completion, receipts.fault());
            continue;
        }
        auto done = [this, completion = std::move(written[i].completion),
                     receipt = (*receipts)[i]](const std::optional<Fault>& fault) {
            answer(completion, fault ? Result<Receipt>(*fault) : Result<Receipt>(receipt));
        };
        m_spWriting->settle(i, std::move(done));
    }
}

void Writer::answer(const Completion& completion, const Result<Receipt>& receipt)
{
    {
        std::lock_guard hold(m_lock);
        m_status.fault = receipt ? std::nullopt : std::optional(receipt.fault());
        m_status.failures += !receipt;
        if (receipt) {
            ++m_status.uploads;
            m_status.events += receipt->events;
            m_status.rejects += receipt->rejects;
            m_status.known += receipt->known;
        }
    }
    completion(receipt);
}

} // namespace store
