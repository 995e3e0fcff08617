#include "Delivery.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>
#include <thread>
#include <utility>

#include <sys/stat.h>

#include "EventLine.h"
#include "EventLog.h"
#include "Lines.h"
#include "UniqueIdFile.h"
#include "UploadForm.h"
#include "lumo/tova/event.h"
#include "lumo/tova/runtime.h"

namespace AnalyticsSDK {
namespace {

using std::chrono::milliseconds;

constexpr size_t longest_name = 190;           // with what batches add to it, a file's name has at most 255 bytes
constexpr auto look_delay = milliseconds(500); // a batch that is sealed by size is sent within a second
constexpr auto longest_wait = milliseconds(60'000);
constexpr auto for_ever = DeliveryClock::time_point::max();
constexpr auto consent_look = milliseconds(50);
constexpr int seal_patience_ms = 100;

/// A whole upload under way, anywhere in this process: the file that it deletes must not be taken over meanwhile.
std::atomic<int> wholeUploads{0};
struct WholeUpload
{
    WholeUpload() { ++wholeUploads; }
    ~WholeUpload() { --wholeUploads; }
    WholeUpload(const WholeUpload&) = delete;
    WholeUpload& operator=(const WholeUpload&) = delete;
};

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    return path.empty() ? path : std::filesystem::absolute(path, error).string();
}

int64_t Now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

// A million hosts that started at nine must not arrive together at ten.
milliseconds Jitter(uint32_t interval_ms)
{
    static thread_local std::minstd_rand random{std::random_device{}()};
    return milliseconds(std::uniform_int_distribution<uint32_t>(0, interval_ms / 10)(random));
}

} // namespace

Delivery::Delivery(const char* serverUrl, IProgressCallback& observers, Ended ended)
    : EventManager(serverUrl),
      m_observers(observers),
      m_ended(std::move(ended)),
      m_courier(static_cast<WebClient&>(*m_pWebClient)) // what CreateWebClient() makes
{}

Delivery::~Delivery() = default;

// Options.

bool Delivery::UseBatches()
{
    if (!m_outbox) {
        const std::string log = AbsolutePath(m_strEventLogFilePath);
        if (log.size() - (log.rfind('/') + 1) > longest_name)
            return false;
        m_outbox = std::make_unique<Outbox>(log);
        m_openLog = std::make_unique<OpenLog>(*m_outbox, m_options);
    }
    if (MayTakeOver())
        m_outbox->TakeOver();
    return true;
}

bool Delivery::SetOption(Option option, const char* value)
{
    lumo::scoped_lock hold(m_optionLock);
    Options wanted; // refuses a wrong value before anything is done for it
    if (!wanted.Set(option, value) ||
        (option == Option::delivery && wanted.Is(option, Choice::batches) && !UseBatches()))
        return false;
    m_options.Set(option, value);
    if (option == Option::consent)
        SetConsent(static_cast<Consent::State>(m_options[option]));
    if (option == Option::delivery && m_openLog)
        m_batches = m_openLog.get();
    if (option == Option::interval_ms) {
        SetTimeout(static_cast<unsigned long>(m_options[option]));
        Tell(rescheduled);
    }
    if (option == Option::send_at_start && m_options.Is(option, Choice::yes) && !m_ranOnce)
        Tell(started);
    return true;
}

// Consent.

void Delivery::UseUniqueId(const char* id)
{
    m_hasHostsId = true;
    SetUniqueId(id);
    SaveUniqueIdToFile();
}

// A forked child has no other threads that could write or send, and its transfers are its parent's.
void Delivery::SetConsent(Consent::State state)
{
    if (m_consent.Get() == Consent::revoked && state != Consent::revoked)
        BeginAnew(); // while nobody may use the id
    m_consent.Set(state);
    if (state != Consent::given && IsOwnProcess()) {
        m_consent.WaitForHolders();
        m_courier.EndQueued();
    }
    if (state == Consent::revoked)
        Forget();
    if (state == Consent::given && m_options.Is(Option::send_at_start, Choice::yes) && !m_ranOnce)
        Tell(started);
}

void Delivery::Forget()
{
    DeleteEventLogFile();
    struct stat file;
    std::string left;
    if (::lstat(m_strEventLogFilePath.c_str(), &file) == 0 && S_ISREG(file.st_mode))
        left = m_strEventLogFilePath;
    if (!m_strEventLogFilePath.empty()) {
        const Outbox found(AbsolutePath(m_strEventLogFilePath));
        if (!(m_outbox ? *m_outbox : found).DeleteAll())
            left = "the outbox of " + m_strEventLogFilePath;
    }
    if (m_openLog)
        m_openLog->Refresh(); // an open handle would keep the deleted file's events on the disk
    m_isOldIdKept = !UniqueIdFile::Delete(m_strPidFilePath);
    if (m_isOldIdKept)
        left = m_strPidFilePath;
    if (!left.empty())
        m_ledger.SetLastError("Consent was revoked, but " + left + " could not be deleted; delete it by hand.");
}

// After a withdrawn consent: nothing must lead from the new events to the old ones.
void Delivery::BeginAnew()
{
    if (m_hasHostsId)
        return SaveUniqueIdToFile();
    SetUniqueId(CreateNewUniqueId().c_str());
    if (m_isOldIdKept)
        return;
    // Made by another process since, the file holds this installation's new id.
    if (!UniqueIdFile::Create(m_strPidFilePath, m_strUniqueId))
        LoadUniqueIdFromFile();
}

// Events.

void Delivery::LogEvent(const char* name, LogObject* event)
{
    const auto passage = m_consent.ToWrite();
    if (!passage)
        return;
    BeginLine();
    m_pCurrentEvent->element(nullptr, name);
    const std::string_view line = EndLine(event);
    m_ledger.figures.CountAccepted();
    OpenLog* batches = InBatches() ? m_batches.load() : nullptr;
    bool written;
    if (batches != nullptr) {
        const OpenLog::Written how = batches->Append(line);
        written = how != OpenLog::Written::no;
        // Once for all batches until the worker looks: waking it takes as long as several events.
        if (how == OpenLog::Written::andSealed && !m_lookPending.exchange(true))
            Tell(sealed);
    } else
        written = EventLog::Append(m_strEventLogFilePath, line, m_options.Is(Option::sync, Choice::sync_event));
    if (!written)
        ++m_ledger.figures.failed;
}

// Sending.

bool Delivery::MayTakeOver() const
{
    return wholeUploads == 0;
}

// What is under way at shutdown may go on for a while, what has lost the user's consent may not.
bool Delivery::MustEnd() const
{
    if (!m_consent.AllowsSending())
        return true;
    const Moment::rep end = m_closeEnd;
    return end != 0 && DeliveryClock::now().time_since_epoch().count() >= end;
}

PostTerms Delivery::Terms(std::function<bool()> is_over, bool inBatches) const
{
    const bool compressed = m_options.Is(Option::compress, Choice::gzip) && m_ledger.MayCompress();
    return {.total_ms = static_cast<long>(m_options[Option::request_ms]),
            .compressed = compressed,
            .inBatches = inBatches,
            .isOver = std::move(is_over)};
}

Answer Delivery::SendBatch(const BatchRequest& request, const PostTerms& terms, bool queued)
{
    auto form = UploadForm(GetUniqueId(), m_strApplicationVersion, std::string(request.data));
    form[UploadField::batch] = request.id;
    form[UploadField::dropped] = std::to_string(request.dropped);
    form[UploadField::lines] = std::to_string(request.lines);
    form[UploadField::first_line] = std::to_string(request.first);
    form[UploadField::sent_at] = std::to_string(Now_ms());
    return queued ? m_courier.PostQueued(m_strServerUrl, form, terms, m_observers)
                  : m_courier.Post(m_strServerUrl, form, terms).answer;
}

CycleOutcome Delivery::RunCycle(bool byHost, bool queued, const Moment& end)
{
    m_openLog->Refresh();
    const auto is_over = [this, end] { return MustEnd() || DeliveryClock::now() >= end; };
    PostTerms terms = Terms(is_over, true);
    Cycle cycle(*m_outbox, m_options, m_ledger,
                {.asked = byHost, .mayTakeOver = InBatches() && MayTakeOver(), .end = end, .isOver = is_over});
    return cycle.Run([&](const BatchRequest& request) {
        terms.compressed = request.compressed;
        return SendBatch(request, terms, queued);
    });
}

// One upload of the default mode. `evenEmpty`: a host that asks for one gets a request, also when no event is waiting.
Delivery::Sent Delivery::SendWhole(bool evenEmpty, const PostTerms& terms, long* status)
{
    const WholeUpload under_way;
    std::string text;
    unsigned long size = 0; // the file's, which decides: a file of blanks alone is sent too, and then deleted
    // A file that cannot be read is no empty one: the success of an empty upload would delete what was never sent.
    if (!ReadPendingEvents(text, size))
        return Sent::failed;
    if (size == 0 && !evenEmpty)
        return Sent::all;
    if (!MaySend())
        return Sent::failed;
    const uint64_t lines = CountLines(text);
    const auto form = UploadForm(GetUniqueId(), m_strApplicationVersion, std::move(text));
    const auto post = [&](const PostTerms& how) {
        const int64_t sent_ms = Now_ms();
        auto outcome = m_courier.Post(m_strServerUrl, form, how);
        m_ledger.Enter(outcome.answer, sent_ms);
        return outcome;
    };
    auto outcome = post(terms);
    if (AnalyticsSDK::Judge(outcome.answer, terms.compressed) == Verdict::plain) {
        PostTerms plain = terms;
        plain.compressed = false;
        outcome = post(plain);
        if (outcome.taken)
            m_ledger.RefuseCompression();
    }
    if (status != nullptr)
        *status = outcome.answer.status;
    if (!outcome.taken)
        return outcome.answer.endedHere ? Sent::timeOver : Sent::failed;
    m_ledger.figures.delivered += lines;
    DeleteEventLogFile();
    return Sent::all;
}

// Batches that are left from an earlier mode go first. Whether they are taken does not hold up the rest.
Delivery::Sent Delivery::SendAll(const Moment& end)
{
    const auto passage = m_consent.ToSend();
    if (!passage)
        return Sent::noConsent;
    Sent sent = Sent::all;
    if (m_batches.load() && !RunCycle(true, false, end).allTaken)
        sent = Sent::failed;
    if (!InBatches()) {
        const Sent whole =
            SendWhole(true, Terms([this, end] { return MustEnd() || DeliveryClock::now() >= end; }, false));
        sent = whole == Sent::all ? sent : whole;
    }
    return sent == Sent::all || m_consent.AllowsSending() ? sent : Sent::noConsent;
}

Delivery::Sent Delivery::Send()
{
    return MaySend() ? SendAll(for_ever) : Sent::failed;
}

Delivery::Sent Delivery::SendFor(uint32_t wait_ms)
{
    const Moment end = DeliveryClock::now() + milliseconds(wait_ms);
    if (!MaySend())
        return Sent::failed;
    for (;;) {
        if (const Sent sent = SendAll(end); sent == Sent::all || sent == Sent::noConsent)
            return sent;
        if (DeliveryClock::now() >= end)
            return InBatches() && State().bytesWaiting == 0 ? Sent::all : Sent::timeOver;
        const Moment pause = m_ledger.RetryAfterEnd();
        if (!InBatches() || pause <= DeliveryClock::now())
            return Sent::failed;
        Sleep(std::min(pause, end));
    }
}

// Until a time, or until the consent is withdrawn.
void Delivery::Sleep(const Moment& until) const
{
    for (Moment now; (now = DeliveryClock::now()) < until && m_consent.AllowsSending();)
        std::this_thread::sleep_until(std::min(until, now + consent_look));
}

bool Delivery::QueueWhole(bool compressed)
{
    const auto passage = m_consent.ToSend();
    if (!passage)
        return false;
    const auto under_way = std::make_shared<WholeUpload>();
    std::string text;
    unsigned long size = 0;
    if (!ReadPendingEvents(text, size) || !MaySend())
        return false;
    PostTerms terms = Terms([] { return false; }, false);
    terms.compressed = compressed;
    const uint64_t lines = CountLines(text);
    const auto form = UploadForm(GetUniqueId(), m_strApplicationVersion, std::move(text));
    return m_courier.Queue(m_strServerUrl, form, terms, m_observers,
                           [this, under_way, lines, sent_ms = Now_ms()](const Answer& answer) {
                               m_ledger.Enter(answer, sent_ms);
                               if (AnalyticsSDK::Judge(answer, false) == Verdict::taken)
                                   m_ledger.figures.delivered += lines;
                           });
}

bool Delivery::SendLater()
{
    if (!m_batches.load())
        return QueueWhole(Terms({}, false).compressed);
    if (!MaySend() || !MaySendByConsent() || !m_running || IsShuttingDown())
        return false;
    Tell(asked);
    return true;
}

bool Delivery::SendPlainAfter(long status)
{
    const bool refused = Terms({}, false).compressed && (status == 415 || status == 400) && !m_batches.load();
    if (!refused)
        return false;
    m_ledger.RefuseCompression();
    return QueueWhole(false);
}

// On the worker, through the client's queue. Observers are told of the end on the client's thread, as of everything.
void Delivery::SendAsked()
{
    const auto passage = m_consent.ToSend();
    if (!passage)
        return;
    const CycleOutcome outcome = RunCycle(true, true, for_ever);
    bool taken = outcome.allTaken;
    long status = outcome.status;
    if (!InBatches()) {
        long whole_status = 0;
        const bool whole = SendWhole(true, Terms([this] { return MustEnd(); }, false), &whole_status) == Sent::all;
        status = taken ? whole_status : status;
        taken = taken && whole;
    }
    if (!MaySendByConsent())
        return; // cancelled, of which observers are not told
    m_courier.CallThere([=, this] { m_ended(taken, status); }, [this] { return MustEnd(); });
}

// The worker.

void Delivery::Tell(unsigned news)
{
    m_news |= news;
    Wake();
}

void Delivery::StartUpload()
{
    Tell(started);
}

void Delivery::Init()
{
    SetNext(AfterInterval());
    EventManager::Init();
}

bool Delivery::start()
{
    m_running = EventManager::start();
    return m_running;
}

void Delivery::stop()
{
    const Moment end = DeliveryClock::now() + milliseconds(m_options[Option::close_ms]);
    m_closeEnd = std::max<Moment::rep>(end.time_since_epoch().count(), 1);
    EventManager::stop();
}

void Delivery::Close()
{
    EventManager::Close();
}

Delivery::Moment Delivery::AfterInterval() const
{
    const auto interval = static_cast<uint32_t>(GetTimeout());
    return DeliveryClock::now() + milliseconds(interval) + (InBatches() ? Jitter(interval) : milliseconds(0));
}

uint32_t Delivery::Wait_ms() const
{
    const Moment due = m_lookAt ? std::min(*m_lookAt, Next()) : Next();
    const auto wait = std::chrono::ceil<milliseconds>(due - DeliveryClock::now());
    // Not much longer, because the system's waits follow a clock that can be set.
    const auto most = m_batches ? longest_wait : milliseconds(std::numeric_limits<int32_t>::max());
    return static_cast<uint32_t>(std::clamp(wait, milliseconds(0), most).count());
}

int Delivery::run()
{
    for (;;) {
        const bool woken = tova_event_wait_time(&m_wakeEvent, Wait_ms()) != 0;
        const int stopped = tova_event_wait_time(&_stop_event, 0);
        const unsigned news = m_news.exchange(0);
        try {
            // A sending that was asked for before the stop still has its time (close_ms).
            if (stopped != 0 && (news & asked) != 0)
                SendAsked();
            else if (stopped == 0)
                Turn(woken && news == 0 ? started : news); // woken through EventManager itself
        } catch (const std::exception&) {
            Schedule(); // running out of memory costs this cycle, never the host
            m_lookPending = false;
        }
        if (stopped != 0)
            return stopped;
    }
}

void Delivery::Turn(unsigned news)
{
    if ((news & rescheduled) != 0)
        SetNext(AfterInterval());
    if ((news & sealed) != 0 && !m_lookAt)
        m_lookAt = DeliveryClock::now() + look_delay;
    if ((news & asked) != 0)
        SendAsked();
    const auto now = DeliveryClock::now();
    if ((news & started) != 0 || now >= Next())
        Process();
    else if (m_lookAt && now >= *m_lookAt)
        LookAtOutbox();
    if ((news & asked) != 0 && !InBatches())
        Schedule();
}

// Before looking: what is sealed from now on asks for another look.
void Delivery::EndLookWait()
{
    m_lookAt.reset();
    m_lookPending = false;
}

// A batch is sent soon after it was sealed, unless a back-off or the server's Retry-After lasts. The limits of the
// outbox are kept either way.
void Delivery::LookAtOutbox()
{
    EndLookWait();
    const auto now = DeliveryClock::now();
    if (now >= m_ledger.BackOffEnd() && now >= m_ledger.RetryAfterEnd() && MaySendByConsent())
        Process();
    else if (const auto passage = m_consent.ToWrite())
        KeepInOrder(*m_outbox, m_options, m_ledger);
}

void Delivery::Process()
{
    if (IsShuttingDown())
        return;
    EndLookWait();
    if (!MaySendByConsent())
        KeepUnsent();
    else if (!SendDue())
        Report(); // calls the host's log, which may withdraw the consent, so no passage may be held
    Schedule();
}

// False when something could not be sent.
bool Delivery::SendDue()
{
    const auto passage = m_consent.ToSend();
    if (!passage)
        return true;
    m_ranOnce = true;
    bool taken = true;
    if (m_batches.load() != nullptr)
        taken = RunCycle(false, false, for_ever).allTaken;
    if (!InBatches())
        taken = SendWhole(false, Terms([this] { return MustEnd(); }, false)) == Sent::all && taken;
    return taken || !MaySendByConsent();
}

// A cycle without sending: what waits for the user's consent is sealed, so that its age counts, and kept in its limits.
void Delivery::KeepUnsent()
{
    const auto passage = m_consent.ToWrite();
    if (!passage || !InBatches() || m_batches.load() == nullptr)
        return;
    m_openLog->Refresh();
    if (MayTakeOver())
        m_outbox->TakeOver();
    m_outbox->SealOpen(seal_patience_ms);
    KeepInOrder(*m_outbox, m_options, m_ledger);
}

void Delivery::Report()
{
    const std::string reason = m_ledger.LastError();
    const uint64_t failed = m_ledger.figures.requestsFailed;
    if (!reason.empty() && failed != std::exchange(m_reported, failed))
        tova_log(2, "Upload failed: %.480s", reason.c_str());
}

// The next cycle: an interval from now; sooner when a back-off, or the wait of a batch that was set aside, ends before;
// later when the server asks for it with Retry-After.
void Delivery::Schedule()
{
    Moment next = AfterInterval();
    if (InBatches()) {
        const auto now = DeliveryClock::now();
        if (m_ledger.BackOffEnd() > now)
            next = m_ledger.BackOffEnd();
        if (const auto aside = m_ledger.FirstAside())
            next = std::min(next, std::max(*aside, now));
        next = std::max(next, m_ledger.RetryAfterEnd());
    }
    SetNext(next);
}

DeliveryState Delivery::State() const
{
    DeliveryState state;
    struct stat file;
    if (m_batches.load()) {
        const OutboxContents contents = m_outbox->Scan();
        state.batchesWaiting = contents.batches.size();
        state.bytesWaiting = contents.Bytes();
    }
    if (!InBatches() && ::stat(m_strEventLogFilePath.c_str(), &file) == 0)
        state.bytesWaiting += static_cast<uint64_t>(file.st_size);
    if (m_running && MaySendByConsent())
        state.nextRequest_ms =
            Now_ms() +
            std::max<int64_t>(0, std::chrono::duration_cast<milliseconds>(Next() - DeliveryClock::now()).count());
    return state;
}

} // namespace AnalyticsSDK
