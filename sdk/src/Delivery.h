// The event manager of a session: its options, and how its events are kept and sent in either mode.
//
// In the default mode it does what EventManager does, byte for byte. In batches its worker drives cycles over the
// outbox. A host's thread only appends, or waits for a sending that it has asked for.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "AnalyticsSDK/EventManager.h"
#include "Consent.h"
#include "Courier.h"
#include "Cycle.h"
#include "Ledger.h"
#include "OpenLog.h"
#include "Options.h"
#include "Outbox.h"

namespace AnalyticsSDK {

/// Figures of a session and of its outbox, as hosts see them.
struct DeliveryState
{
    uint64_t batchesWaiting = 0, bytesWaiting = 0;
    int64_t nextRequest_ms = 0; ///< since 1970 UTC; 0: none is planned
};

class Delivery : public EventManager
{
public:
    /// How an asynchronous sending in batches ended: whether all was taken, else the first failure's HTTP status.
    using Ended = std::function<void(bool taken, long status)>;

    /// @param observers are told of queued requests: of whole uploads everything, of batches only the answers' bytes
    Delivery(const char* serverUrl, IProgressCallback& observers, Ended ended);
    ~Delivery() override;

    /// @return false, and no change, when the value is refused
    bool SetOption(Option option, const char* value);
    std::string GetOption(Option option) const { return m_options.Text(option); }
    /// The stamps that an event begins with, as bits.
    unsigned Stamps() const { return static_cast<unsigned>(m_options[Option::stamp]); }

    /// Uses the host's own id, which a withdrawn consent leaves as it is. Before Init().
    void UseUniqueId(const char* id);
    bool MaySendByConsent() const { return m_consent.AllowsSending(); }

    void LogEvent(const char* name, LogObject* event);

    enum class Sent
    {
        all,
        failed,
        timeOver, ///< with events still waiting
        noConsent
    };
    /// Sends on the calling thread and waits for the outcome.
    Sent Send();
    /// The same for at most `wait_ms`; waits for a server that asks for a pause.
    Sent SendFor(uint32_t wait_ms);
    /// Starts a sending. @return false when it could not be started
    bool SendLater();
    /// For the observers, on the client's thread: when a packed whole upload was refused, sends it once more as it is.
    /// @return whether another outcome is to come
    bool SendPlainAfter(long status);

    const Ledger& Book() const { return m_ledger; }
    DeliveryState State() const;

    void Init() override;
    void Close() override;
    void Process() override;
    int run() override;
    bool start() override;
    void stop() override;
    void StartUpload();

private:
    using Moment = DeliveryClock::time_point;
    enum News : unsigned
    {
        started = 1,    ///< StartUpload()
        asked = 2,      ///< SendLater()
        sealed = 4,     ///< a batch was sealed by size
        rescheduled = 8 ///< the interval was set anew
    };

    void SetConsent(Consent::State state);
    void Forget();
    void BeginAnew();

    void Tell(unsigned news);
    bool UseBatches();
    bool InBatches() const { return m_options.Is(Option::delivery, Choice::batches); }
    bool MayTakeOver() const;
    bool MustEnd() const;
    PostTerms Terms(std::function<bool()> isOver, bool inBatches) const;

    CycleOutcome RunCycle(bool byHost, bool queued, const Moment& end);
    Answer SendBatch(const BatchRequest& request, const PostTerms& terms, bool queued);
    Sent SendWhole(bool evenEmpty, const PostTerms& terms, long* status = nullptr);
    Sent SendAll(const Moment& end);
    void Sleep(const Moment& until) const;
    bool QueueWhole(bool compressed);
    void SendAsked();
    void Report();

    void Turn(unsigned news);
    bool SendDue();
    void KeepUnsent();
    void Schedule();
    void EndLookWait();
    void LookAtOutbox();
    void SetNext(Moment next) { m_next = next.time_since_epoch().count(); }
    Moment Next() const { return Moment(Moment::duration(m_next)); }
    Moment AfterInterval() const;
    uint32_t Wait_ms() const;

    Options m_options;
    Consent m_consent;
    bool m_hasHostsId = false, m_isOldIdKept = false;
    Ledger m_ledger{m_options};
    IProgressCallback& m_observers;
    Ended m_ended;
    Courier m_courier;
    std::unique_ptr<Outbox> m_outbox; ///< made once, when the mode is first asked for, and kept
    std::unique_ptr<OpenLog> m_openLog;
    std::atomic<OpenLog*> m_batches{nullptr}; ///< m_openLog, for other threads: null as long as there is none
    std::atomic<unsigned> m_news{0};
    std::atomic<Moment::rep> m_next{0};     ///< when the next cycle is due
    std::optional<Moment> m_lookAt;         ///< when to look at what was sealed; the worker's
    std::atomic<bool> m_lookPending{false}; ///< the worker was told that there is something to look at
    std::atomic<Moment::rep> m_closeEnd{0}; ///< 0 until a stop was asked for
    std::atomic<bool> m_running{false}, m_ranOnce{false};
    lumo::mutex m_optionLock{true}; ///< one change at a time
    uint64_t m_reported = 0;        ///< failed requests when the log was last told of one; the worker's
};

} // namespace AnalyticsSDK
