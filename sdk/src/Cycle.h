// One run through the outbox: which batch is next, and what an answer does to it. Independent of the network code.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Answers.h"
#include "Batch.h"
#include "Ledger.h"
#include "Options.h"
#include "Outbox.h"

namespace AnalyticsSDK {

/// What one request carries.
struct BatchRequest
{
    std::string id;        ///< "b"
    uint64_t first = 0;    ///< "o"
    uint64_t lines = 0;    ///< "n"
    uint64_t dropped = 0;  ///< "d"
    std::string data = {}; ///< the lines as they are in the file
    bool compressed = false;
};

/// How a run ended.
struct CycleOutcome
{
    bool allTaken = true; ///< no batch is left unsent
    long status = 0;      ///< of the first failure
};

/// Tidies the folder, enforces the limits, and syncs to the disk what the options ask for.
OutboxContents KeepInOrder(const Outbox& outbox, const Options& options, Ledger& ledger);

class Cycle
{
public:
    /// Sends a request and waits for what comes of it.
    using Send = std::function<Answer(const BatchRequest&)>;
    struct Terms
    {
        bool asked = false;      ///< by a host: batches that were set aside are tried too, claimed ones waited for
        bool mayTakeOver = true; ///< whether the file of the default mode is taken over
        DeliveryClock::time_point end = DeliveryClock::time_point::max(); ///< what waits for locks ends by then
        /// True when the time limit has passed or the session ends.
        std::function<bool()> isOver = [] { return false; };
    };

    Cycle(const Outbox& outbox, const Options& options, Ledger& ledger, Terms terms);

    /// Seals, tidies, enforces the limits, then sends the oldest batch first until none is left or a failure ends the
    /// run.
    CycleOutcome Run(const Send& send);

private:
    enum class After
    {
        onward, ///< to the batch's next part
        leave,  ///< on to the next batch
        end     ///< of the cycle
    };
    void Prepare();
    void DeleteTaken();
    void SendBatches(const Send& send);
    std::unique_ptr<Batch> ClaimNext();
    std::unique_ptr<Batch> ClaimPlanned();
    bool PlanAgain();
    After SendBatch(const Send& send, Batch& batch);
    After SendPart(const Send& send, Batch& batch, uint64_t& lines);
    bool Fill(const Batch& batch, BatchRequest& request) const;
    Answer Ask(const Send& send, BatchRequest& request);
    void Finish(Batch& batch, uint64_t lines);
    bool Divide(Batch& batch);
    bool IsWhole(const Batch& batch) const;
    After Shrink(Batch& batch, const Answer& answer);
    After TryLater(Batch& batch, const Answer& answer);
    After SetAside(const Batch& batch, const Answer& answer);
    After Fail(const Batch& batch, const Answer& answer);
    void NoteFailure(long status);
    void TellDropped(const Send& send);
    bool MustStop() const;
    int Patience_ms(int most_ms) const;

    const Outbox& m_outbox;
    const Options& m_options;
    Ledger& m_ledger;
    const Terms m_terms;
    CycleOutcome m_outcome;
    std::deque<BatchName> m_plan;
    std::deque<BatchPart> m_parts;            ///< of the current batch, the parts still to be sent
    std::deque<BatchName> m_busy;             ///< claimed by others
    std::set<BatchName> m_tried;              ///< by this run
    std::set<std::string, std::less<>> m_ids; ///< of the batches that were there at the start
    std::vector<BatchName> m_dropped;
    std::optional<DeliveryClock::time_point> m_busyEnd;
    std::string m_error;      ///< why a batch could not be read; empty when all could
    bool m_sawOthers = false; ///< another process has changed the planned batches
    long m_asideStatus = 0;   ///< of the last answer if that set its batch aside; else 0
};

} // namespace AnalyticsSDK
