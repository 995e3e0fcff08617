#include "HandleParameters.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "Properties.h"

namespace AnalyticsSDK {

// Frames form a list from the root down and are kept when they end, for the next event: an event of the usual shape
// allocates nothing.

namespace {

// Deeper frames are freed: one unusual event must not hold memory for the rest of the session.
constexpr uint32_t kept_depth = 128;

} // namespace

HandleParameters::~HandleParameters()
{
    while (top != nullptr)
        Pop();
}

Frame& HandleParameters::Push(Frame::Kind kind, const char* name)
{
    lumo::scoped_ptr<Frame>& spPlace = top != nullptr ? top->spSpare : spRoot;
    if (!spPlace)
        spPlace.Reset(new Frame);
    Frame& frame = *spPlace;
    // Each document is kept once it was made: in the next event this frame may be of the other kind.
    if (kind == Frame::object && !frame.spObject)
        frame.spObject.emplace();
    if (kind == Frame::array && !frame.spArray)
        frame.spArray.emplace();
    frame.kind = kind;
    frame.name = name;
    frame.parent = top;
    top = &frame;
    ++depth;
    return frame;
}

// Documents are emptied here rather than on their next use, so that a large one frees its memory now.
void HandleParameters::Pop()
{
    if (top->kind == Frame::object)
        top->spObject->Restart();
    else
        top->spArray->Restart();
    top = top->parent;
    --depth;
    if (depth >= kept_depth) // so there is a parent
        top->spSpare.Reset();
}

// An ended frame is closed even when memory runs out while it is added to its parent or to the file: after ending
// everything it began, a host can begin the next event.
struct HandleParameters::Ending
{
    HandleParameters& session;
    ~Ending() { session.Pop(); }
};

uint32_t HandleParameters::BeginEvent(const char* name)
{
    if (in_event != 0)
        return ANALYTICS_EVENT_OPEN;
    Push(Frame::object, nullptr); // first: when it runs out of memory, no event is open
    try {
        if (const std::string_view begun = m_context.Begin(event_manager.Stamps()); !begun.empty())
            top->spObject->Resume(begun);
    } catch (...) {
        Pop();
        throw;
    }
    event_name = name;
    in_event = 1;
    return ANALYTICS_OK;
}

uint32_t HandleParameters::EndEvent()
{
    if (in_event == 0)
        return ANALYTICS_NO_EVENT;
    // Refused rather than closed: a host that has lost count would otherwise log a wrong event without notice.
    if (top->parent != nullptr)
        return ANALYTICS_NESTED_OPEN;
    const Ending ending{*this};
    in_event = 0;
    top->spObject->EndObject();
    event_manager.LogEvent(event_name, &*top->spObject);
    return ANALYTICS_OK;
}

// Members of objects need a name and elements of arrays have none, as in JSON.
uint32_t HandleParameters::CheckName(const char* name) const
{
    if (top == nullptr)
        return ANALYTICS_NO_EVENT;
    if (top->kind == Frame::object && name == nullptr)
        return ANALYTICS_NAME_REQUIRED;
    if (top->kind == Frame::array && name != nullptr)
        return ANALYTICS_NAME_REFUSED;
    return ANALYTICS_OK;
}

uint32_t HandleParameters::BeginFrame(Frame::Kind kind, const char* name)
{
    const uint32_t result = CheckName(name);
    if (result == ANALYTICS_OK)
        Push(kind, name);
    return result;
}

namespace {

/// What an end call returns when it is refused. Deliberate: the codes differ by kind, because hosts tell the two
/// mistakes apart by them since the first version.
constexpr struct
{
    uint32_t onlyRoot;
    uint32_t otherKind;
} end_refused[] = {{ANALYTICS_NO_OBJECT_OPEN, ANALYTICS_NAME_REFUSED},
                   {ANALYTICS_NO_ARRAY_OPEN, ANALYTICS_NAME_REQUIRED}};

// Ended first: the parent copies the child's text, closing bracket included. The results of the documents are not
// needed: they refuse nothing that the checks above allow.
void AddTo(Frame& parent, Frame& child)
{
    if (child.kind == Frame::object) {
        child.spObject->EndObject();
        if (parent.kind == Frame::array)
            parent.spArray->AddObject(&*child.spObject);
        else
            parent.spObject->AddObject(child.name, &*child.spObject);
        return;
    }
    child.spArray->EndObject();
    if (parent.kind == Frame::array)
        parent.spArray->AddArray(&*child.spArray);
    else
        parent.spObject->AddArray(child.name, &*child.spArray);
}

} // namespace

// With only the root open, any end call is one too many: checked before the kind.
uint32_t HandleParameters::EndFrame(Frame::Kind kind)
{
    if (top == nullptr)
        return ANALYTICS_NO_EVENT;
    if (top->parent == nullptr)
        return end_refused[kind].onlyRoot;
    if (top->kind != kind)
        return end_refused[kind].otherKind;
    const Ending ending{*this};
    AddTo(*top->parent, *top);
    return ANALYTICS_OK;
}

uint32_t HandleParameters::AddProperty(const char* key)
{
    PropertyValue value;
    // Checked before the machine is queried, which may take time.
    if (top == nullptr)
        return ANALYTICS_NO_EVENT;
    const uint32_t result = ReadProperty(key, value);
    if (result != ANALYTICS_OK)
        return result;
    if (top->kind == Frame::array)
        return AddUnnamed(
            [&](LogArray& array) { value.isNumber ? array.AddUInt64(value.number) : array.AddString(value.text); });
    return AddNamed(key, [&](LogObject& object, const char* name) {
        value.isNumber ? object.AddUInt64(name, value.number) : object.AddString(name, value.text);
    });
}

uint32_t HandleParameters::RemoveContext(const char* name)
{
    if (name == nullptr)
        return ANALYTICS_NAME_REQUIRED;
    m_context.Remove(name);
    return ANALYTICS_OK;
}

// Sending, and what observers receive.

uint32_t HandleParameters::AddObserver(const char* event, analytics_observer callback, void* context)
{
    // Exact names: a misspelled one is refused at once, instead of an observer that is never called.
    const struct
    {
        const char* event;
        Observers& observers;
    } lists[] = {{"complete", complete_observers},
                 {"error", error_observers},
                 {"size", size_observers},
                 {"progress", progress_observers}};
    for (const auto& list : lists)
        if (event != nullptr && std::strcmp(event, list.event) == 0) {
            list.observers.push_back({callback, context});
            return ANALYTICS_OK;
        }
    return ANALYTICS_UNKNOWN_OBSERVER_EVENT;
}

namespace {

uint32_t ResultOf(Delivery::Sent sent)
{
    if (sent == Delivery::Sent::all)
        return ANALYTICS_OK;
    if (sent == Delivery::Sent::noConsent)
        return ANALYTICS_SEND_NO_CONSENT;
    return sent == Delivery::Sent::timeOver ? ANALYTICS_SEND_TIME_OVER : ANALYTICS_SEND_FAILED;
}

} // namespace

uint32_t HandleParameters::Send(bool synchronous)
{
    // No observer is called: the host waits here for the result. Only SendFor() gives it a time.
    if (synchronous) {
        const Delivery::Sent sent = event_manager.Send();
        return ResultOf(sent == Delivery::Sent::timeOver ? Delivery::Sent::failed : sent);
    }
    sending = 1; // before the callback can clear it
    if (event_manager.SendLater())
        return ANALYTICS_OK;
    sending = 0;
    return event_manager.MaySendByConsent() ? ANALYTICS_SEND_FAILED : ANALYTICS_SEND_NO_CONSENT;
}

uint32_t HandleParameters::SendFor(uint32_t wait_ms)
{
    return ResultOf(event_manager.SendFor(wait_ms));
}

// noexcept: an exception of an observer would pass through C code, so it ends the process here, where the cause is
// visible. An observer may add observers, which moves the records, hence indexes and copies; added ones are called from
// the next time on.
void HandleParameters::Notify(const Observers& observers, uint32_t value, double amount) noexcept
{
    const size_t count = observers.size();
    for (size_t place = 0; place < count; ++place) {
        const observerData observer = observers[place];
        if (observer.callback != nullptr)
            observer.callback(observer.context, value, amount);
    }
}

void HandleParameters::OnDownloadComplete(const char*)
{
    sending = 0;
    // Before the observers: one of them may check that the file is gone, or log the first event of the next upload.
    event_manager.DeleteEventLogFile();
    Notify(complete_observers, 0, 0.0);
}

// Only the library cancels, at shutdown, so there is nothing to tell the host.
void HandleParameters::OnDownloadCancel(const char*)
{
    sending = 0;
}

namespace {

// For hosts the web client's own codes (-3, -7) are the general failure, like every status without a row.
uint32_t ObservedError(long code)
{
    static constexpr struct
    {
        long status;
        uint32_t result;
    } mapping[] = {{404, ANALYTICS_SEND_NOT_FOUND},
                   {407, ANALYTICS_SEND_PROXY_LOGIN},
                   {408, ANALYTICS_SEND_TIMEOUT},
                   {414, ANALYTICS_SEND_ADDRESS_TOO_LONG}};
    for (const auto& entry : mapping)
        if (entry.status == code)
            return entry.result;
    return ANALYTICS_SEND_FAILED;
}

} // namespace

void HandleParameters::OnDownloadError(const char*, long code)
{
    if (event_manager.SendPlainAfter(code)) // its outcome is the one to tell
        return;
    sending = 0;
    Notify(error_observers, ObservedError(code), 0.0);
}

// The end of a sending in batches. No file is deleted here: each went with its answer.
void HandleParameters::OnSendEnded(bool taken, long status)
{
    sending = 0;
    Notify(taken ? complete_observers : error_observers, taken ? 0 : ObservedError(status), 0.0);
}

// By the virtual call, so that an override of OnDownloadError sees this failure too. The proxy's name is dropped: hosts
// that need it use the web client directly.
void HandleParameters::OnProxyAuthenticationError(const char* itemID, long code, const char*)
{
    OnDownloadError(itemID, code);
}

// Compared before converting: converting a value that does not fit is undefined.
uint32_t ObservedAmount(double amount)
{
    const bool fits = amount > -2147483649.0 && amount < 2147483648.0; // false for NaN
    return static_cast<uint32_t>(fits ? static_cast<int32_t>(amount) : std::numeric_limits<int32_t>::min());
}

// Deliberate: the size observers first, so that a progress observer knows the total already.
void HandleParameters::OnProgressUpdate(const char*, double downloaded, double total, double speed)
{
    Notify(size_observers, ObservedAmount(total), 0.0);
    Notify(progress_observers, ObservedAmount(downloaded), speed);
}

// Options and figures.

uint32_t HandleParameters::SetConsent(uint32_t consent)
{
    const auto& words = Options::Table()[static_cast<size_t>(Option::consent)].words;
    if (consent >= words.size())
        return ANALYTICS_VALUE_REFUSED;
    return event_manager.SetOption(Option::consent, words[consent]) ? ANALYTICS_OK : ANALYTICS_VALUE_REFUSED;
}

uint32_t HandleParameters::SetOption(const char* key, const char* value)
{
    const auto option = Options::Find(key);
    if (!option)
        return ANALYTICS_UNKNOWN_OPTION;
    return event_manager.SetOption(*option, value) ? ANALYTICS_OK : ANALYTICS_VALUE_REFUSED;
}

namespace {

/// Copies what fits, always with a terminator. False when there is no room for that.
bool CopyText(const std::string& text, char* buffer, size_t size)
{
    if (buffer == nullptr || size == 0)
        return false;
    const size_t length = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return true;
}

} // namespace

uint32_t HandleParameters::GetOption(const char* key, char* value, size_t size) const
{
    const auto option = Options::Find(key);
    if (!option)
        return ANALYTICS_UNKNOWN_OPTION;
    return CopyText(event_manager.GetOption(*option), value, size) ? ANALYTICS_OK : ANALYTICS_VALUE_REFUSED;
}

uint32_t HandleParameters::GetStats(analytics_stats* stats, size_t size) const
{
    if (stats == nullptr)
        return ANALYTICS_VALUE_REFUSED;
    const DeliveryFigures& figures = event_manager.Book().figures;
    const DeliveryState state = event_manager.State();
    const analytics_stats known = {.events_accepted = figures.accepted,
                                   .events_failed = figures.failed,
                                   .events_delivered = figures.delivered,
                                   .events_dropped = figures.dropped,
                                   .batches_waiting = state.batchesWaiting,
                                   .bytes_waiting = state.bytesWaiting,
                                   .requests = figures.requests,
                                   .requests_failed = figures.requestsFailed,
                                   .failures_in_a_row = figures.failuresInARow,
                                   .last_status = figures.lastStatus,
                                   .last_request_ms = figures.lastRequest_ms,
                                   .next_request_ms = state.nextRequest_ms};
    // The host's header may be older, or newer: what this library does not know is zero.
    std::memset(stats, 0, size);
    std::memcpy(stats, &known, std::min(size, sizeof known));
    return ANALYTICS_OK;
}

uint32_t HandleParameters::GetLastError(char* text, size_t size) const
{
    return CopyText(event_manager.Book().LastError(), text, size) ? ANALYTICS_OK : ANALYTICS_VALUE_REFUSED;
}

} // namespace AnalyticsSDK
