#include "Cycle.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>

#include "Lines.h"

namespace AnalyticsSDK {
namespace {

constexpr int claim_patience_ms = 100, seal_patience_ms = 1000;
constexpr uint64_t least_split = 4096; // bytes of lines
constexpr uint64_t least_batches_kept = 4;
constexpr size_t most_dropped = 1000;
constexpr int64_t day_ms = 86'400'000;

// Whether a file is so much larger than its limit that it is worth splitting: it holds a very long line, was taken
// over, or was written to by several processes at once.
bool IsOversize(uint64_t bytes, const Options& options)
{
    const auto limit = static_cast<uint64_t>(options[Option::batch_bytes]);
    return bytes > limit + limit / 8;
}

int64_t Now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string ReasonOfUnreadable(const std::string& file)
{
    return "The events in " + file + " cannot be read (" + std::generic_category().message(errno) +
           "); see to it that this user may read the file.";
}

} // namespace

OutboxContents KeepInOrder(const Outbox& outbox, const Options& options, Ledger& ledger)
{
    const auto batch = static_cast<uint64_t>(options[Option::batch_bytes]);
    const auto bytes = static_cast<uint64_t>(options[Option::outbox_bytes]);
    OutboxContents contents = outbox.Tidy();
    outbox.KeepLimits(contents, {std::max(bytes, least_batches_kept * batch), options[Option::outbox_days] * day_ms},
                      [&](uint64_t lines) { ledger.figures.dropped += lines; });
    if (options.Is(Option::sync, Choice::sync_batch) && !contents.batches.empty()) {
        outbox.Sync(contents, ledger.figures.synced_ms);
        ledger.figures.synced_ms = contents.batches.back().name.SealedAt_ms();
    }
    return contents;
}

Cycle::Cycle(const Outbox& outbox, const Options& options, Ledger& ledger, Terms terms)
    : m_outbox(outbox), m_options(options), m_ledger(ledger), m_terms(std::move(terms))
{}

bool Cycle::MustStop() const
{
    return m_terms.isOver() || DeliveryClock::now() < m_ledger.RetryAfterEnd();
}

int Cycle::Patience_ms(int most_ms) const
{
    const auto left = m_terms.end - DeliveryClock::now();
    return left > std::chrono::milliseconds(most_ms)
               ? most_ms
               : static_cast<int>(
                     std::max<int64_t>(0, std::chrono::duration_cast<std::chrono::milliseconds>(left).count()));
}

CycleOutcome Cycle::Run(const Send& send)
{
    if (MustStop()) {
        NoteFailure(0);
        return m_outcome;
    }
    Prepare();
    SendBatches(send);
    TellDropped(send);
    if (!m_error.empty()) // last, as the answer to a request clears it
        m_ledger.SetLastError(m_error);
    return m_outcome;
}

void Cycle::Prepare()
{
    if (m_terms.mayTakeOver)
        m_outbox.TakeOver(); // first: it is older
    if (!m_outbox.SealOpen(Patience_ms(m_terms.asked ? seal_patience_ms : claim_patience_ms)))
        NoteFailure(0); // its events stay unsent
    DeleteTaken();
    const OutboxContents contents = KeepInOrder(m_outbox, m_options, m_ledger);
    m_dropped = contents.dropped;
    for (const auto& batch : contents.batches)
        m_ids.insert(batch.name.id);
    for (BatchName& name : m_ledger.Order(contents, m_terms.asked))
        m_plan.push_back(std::move(name));
}

void Cycle::DeleteTaken()
{
    for (const BatchName& name : m_ledger.TakenOnes()) {
        std::unique_ptr<Batch> batch;
        const Batch::Claimed claimed =
            Batch::Claim(m_outbox.Log(), name, BatchKind::batch, Patience_ms(claim_patience_ms), batch);
        if (claimed == Batch::Claimed::gone || (batch && batch->Delete()))
            m_ledger.Forget(name);
    }
}

void Cycle::SendBatches(const Send& send)
{
    while (const std::unique_ptr<Batch> batch = ClaimNext()) {
        m_tried.insert(batch->Name());
        if (SendBatch(send, *batch) == After::end)
            return;
    }
}

std::unique_ptr<Batch> Cycle::ClaimPlanned()
{
    while (!m_plan.empty()) {
        const BatchName name = m_plan.front();
        std::unique_ptr<Batch> batch;
        m_plan.pop_front();
        switch (Batch::Claim(m_outbox.Log(), name, BatchKind::batch, m_busyEnd ? 0 : Patience_ms(claim_patience_ms),
                             batch)) {
        case Batch::Claimed::yes:
            if (!m_outbox.IsDropped(name))
                return batch;
            batch->Delete();
            break;
        case Batch::Claimed::busy:
            m_busy.push_back(name);
            break;
        case Batch::Claimed::gone:
            m_sawOthers = true;
            break;
        case Batch::Claimed::unreadable:
            m_error = ReasonOfUnreadable(FileOf(m_outbox.Log(), name, BatchKind::batch));
            m_tried.insert(name);
            NoteFailure(0);
        }
    }
    return nullptr;
}

// A host that asks for a send wants everything sent: batches that others have claimed are waited for, and those that
// they have split are looked up again.
std::unique_ptr<Batch> Cycle::ClaimNext()
{
    for (;;) {
        if (auto batch = ClaimPlanned())
            return batch;
        if (!m_terms.asked || (m_busy.empty() && !PlanAgain()))
            return nullptr;
        if (m_busy.empty())
            continue;
        if (!m_busyEnd)
            m_busyEnd = DeliveryClock::now() + std::chrono::milliseconds(m_options[Option::request_ms]);
        if (m_terms.isOver() || DeliveryClock::now() >= *m_busyEnd) {
            NoteFailure(0);
            return nullptr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        m_plan.swap(m_busy);
    }
}

bool Cycle::PlanAgain()
{
    if (!std::exchange(m_sawOthers, false))
        return false;
    for (BatchName& name : m_ledger.Order(m_outbox.Scan(), true))
        if (m_ids.count(name.id) != 0 && m_tried.count(name) == 0)
            m_plan.push_back(std::move(name));
    return !m_plan.empty();
}

Cycle::After Cycle::SendBatch(const Send& send, Batch& batch)
{
    uint64_t lines = 0;
    m_parts = {batch.Whole()};
    while (!m_parts.empty()) {
        if (MustStop()) {
            NoteFailure(0);
            return After::end;
        }
        if (IsOversize(m_parts.front().bytes, m_options) && Divide(batch))
            continue;
        if (const After after = SendPart(send, batch, lines); after != After::onward)
            return after;
    }
    Finish(batch, lines);
    return After::leave;
}

bool Cycle::Fill(const Batch& batch, BatchRequest& request) const
{
    request.id = batch.Name().id;
    request.first = m_parts.front().first;
    request.compressed = m_options.Is(Option::compress, Choice::gzip) && m_ledger.MayCompress();
    if (!batch.Read(m_parts.front(), request.data))
        return false;
    request.lines = CountLines(request.data);
    return true;
}

Cycle::After Cycle::SendPart(const Send& send, Batch& batch, uint64_t& lines)
{
    BatchRequest request;
    if (!Fill(batch, request))
        return SetAside(batch, {});
    if (request.lines == 0) { // only line feeds, which do not count as lines
        m_parts.pop_front();
        return After::onward;
    }
    const Answer answer = Ask(send, request);
    const Verdict verdict = Judge(answer, false);
    if (verdict != Verdict::aside)
        m_asideStatus = 0;
    switch (verdict) {
    case Verdict::taken:
        m_parts.pop_front();
        lines += request.lines;
        m_ledger.Succeed();
        return After::onward;
    case Verdict::split:
        return Shrink(batch, answer);
    case Verdict::later:
        return TryLater(batch, answer);
    default:
        return SetAside(batch, answer);
    }
}

Answer Cycle::Ask(const Send& send, BatchRequest& request)
{
    const auto ask = [&] {
        const int64_t sent_ms = Now_ms();
        Answer answer = send(request);
        m_ledger.Enter(answer, sent_ms);
        return answer;
    };
    Answer answer = ask();
    if (Judge(answer, request.compressed) != Verdict::plain || m_terms.isOver())
        return answer;
    request.compressed = false;
    Answer plain = ask();
    if (Judge(plain, false) == Verdict::taken)
        m_ledger.RefuseCompression();
    return plain;
}

void Cycle::Finish(Batch& batch, uint64_t lines)
{
    m_ledger.figures.delivered += lines;
    if (batch.Delete())
        m_ledger.Forget(batch.Name());
    else
        m_ledger.Taken(batch.Name());
}

bool Cycle::IsWhole(const Batch& batch) const
{
    return m_parts.size() == 1 && m_parts.front().bytes == batch.Bytes();
}

// When no file can be written, the two halves are sent from the one file.
bool Cycle::Divide(Batch& batch)
{
    const auto halves = batch.Halves(m_parts.front());
    if (!halves)
        return false;
    const auto second = IsWhole(batch) ? batch.Split(*halves) : std::nullopt;
    m_parts.pop_front();
    if (second)
        m_plan.push_front(*second);
    else
        m_parts.push_front(halves->second);
    m_parts.push_front(second ? batch.Whole() : halves->first);
    return true;
}

// The server finds the part too large. A very small part cannot be too large: it is kept, as the server may be
// misconfigured.
Cycle::After Cycle::Shrink(Batch& batch, const Answer& answer)
{
    if (m_parts.front().bytes < least_split)
        return SetAside(batch, answer);
    const bool must_wait = DeliveryClock::now() < m_ledger.RetryAfterEnd();
    if (Divide(batch)) {
        if (must_wait)
            NoteFailure(answer.status);
        return must_wait ? After::end : After::onward;
    }
    const auto lines = IsWhole(batch) ? batch.Drop(m_dropped.size() < most_dropped) : std::nullopt;
    if (!lines)
        return SetAside(batch, answer);
    m_ledger.figures.dropped += *lines;
    m_dropped.push_back(batch.Name());
    return must_wait ? After::end : After::leave;
}

Cycle::After Cycle::TryLater(Batch& batch, const Answer& answer)
{
    const bool silent = answer.status == 0 && answer.connected && !answer.endedHere;
    if (m_ledger.WasSilentTooOften(batch.Name(), silent) && (m_parts.front().bytes < least_split || !Divide(batch)))
        m_ledger.SetAside(batch.Name());
    return Fail(batch, answer);
}

Cycle::After Cycle::Fail(const Batch& batch, const Answer& answer)
{
    NoteFailure(answer.status);
    if (!answer.endedHere) {
        m_ledger.EndedBy(batch.Name());
        m_ledger.BackOff();
    }
    return After::end;
}

// The same answer to two different batches shows that the cause is not in the batches.
Cycle::After Cycle::SetAside(const Batch& batch, const Answer& answer)
{
    NoteFailure(answer.status);
    m_ledger.WasSilentTooOften(batch.Name(), false);
    m_ledger.SetAside(batch.Name());
    const bool again = answer.status != 0 && answer.status == std::exchange(m_asideStatus, answer.status);
    return again ? After::end : After::leave;
}

void Cycle::NoteFailure(long status)
{
    if (m_outcome.allTaken)
        m_outcome.status = status;
    m_outcome.allTaken = false;
}

// Their outcome does not count for the host: they hold no events.
void Cycle::TellDropped(const Send& send)
{
    std::sort(m_dropped.begin(), m_dropped.end());
    for (const BatchName& name : m_dropped) {
        if (MustStop())
            return;
        std::unique_ptr<Batch> number;
        const Batch::Claimed claimed = Batch::Claim(m_outbox.Log(), name, BatchKind::dropped, 0, number);
        const auto lines = claimed == Batch::Claimed::yes ? number->DroppedLines() : std::nullopt;
        if (!lines)
            continue;
        BatchRequest request{.id = name.id, .first = name.first, .dropped = *lines};
        const Answer answer = Ask(send, request);
        if (Judge(answer, false) == Verdict::taken)
            number->Delete();
        else if (answer.status == 0) // the server cannot be reached, so further requests would fail too
            return;
    }
}

} // namespace AnalyticsSDK
