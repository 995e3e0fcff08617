// A session: what an analytics_session pointer points to. Holds the event being built and the host's observers.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/LogObject.h"
#include "Context.h"
#include "Delivery.h"
#include "analytics.h"
#include "lumo/scoped_ptr.h"

namespace AnalyticsSDK {

/// An object or array of the event being built, from its begin call to its end call.
///
/// The documents are held here, not allocated one by one: opening an array or object is on the path of every event.
struct Frame
{
    enum Kind : int32_t
    {
        object = 0,
        array = 1
    };

    Kind kind = object;
    const char* name = nullptr;        ///< the host's, not copied; null for the root and inside arrays
    std::optional<LogObject> spObject; ///< the document when kind is object
    std::optional<LogArray> spArray;   ///< the document when kind is array
    lumo::scoped_ptr<Frame> spSpare;   ///< the frame that the next deeper level used before, kept for reuse
    Frame* parent = nullptr;           ///< the enclosing frame, null for the root
};

/// A callback of the host and its context.
struct observerData
{
    analytics_observer callback;
    void* context;
};

/// One session. The host uses it through Analytics.cpp, which has checked the pointer. Driven by one host thread at a
/// time; its IProgressCallback half is called by the web client's thread.
class HandleParameters : public IProgressCallback
{
public:
    explicit HandleParameters(const char* serverUrl)
        : event_manager(serverUrl, *this, [this](bool taken, long status) { OnSendEnded(taken, status); })
    {}
    HandleParameters(const HandleParameters&) = delete;
    HandleParameters& operator=(const HandleParameters&) = delete;
    /// Drops an event that is still open, frame by frame, so that its depth takes no stack.
    ~HandleParameters();

    // The event being built. Each answers an analytics_result and checks before it changes anything.

    uint32_t BeginEvent(const char* name);
    uint32_t EndEvent();
    uint32_t BeginFrame(Frame::Kind kind, const char* name);
    uint32_t EndFrame(Frame::Kind kind);
    /// Adds to the innermost object by `add(LogObject&, name)`.
    template <typename Add>
    uint32_t AddNamed(const char* name, Add add);
    /// Adds to the innermost array by `add(LogArray&)`.
    template <typename Add>
    uint32_t AddUnnamed(Add add);
    uint32_t AddProperty(const char* key);
    /// Sets a member that every later event begins with.
    template <typename Value>
    uint32_t SetContext(const char* name, Value value);
    uint32_t RemoveContext(const char* name);

    uint32_t AddObserver(const char* event, analytics_observer callback, void* context);
    uint32_t Send(bool synchronous);
    uint32_t SendFor(uint32_t wait_ms);
    uint32_t SetConsent(uint32_t consent);
    uint32_t SetOption(const char* key, const char* value);
    uint32_t GetOption(const char* key, char* value, size_t size) const;
    uint32_t GetStats(analytics_stats* stats, size_t size) const;
    uint32_t GetLastError(char* text, size_t size) const;

    void OnDownloadComplete(const char* itemID) override;
    void OnDownloadCancel(const char* itemID) override;
    void OnDownloadError(const char* itemID, long code) override;
    void OnProxyAuthenticationError(const char* itemID, long code, const char* proxy) override;
    void OnProgressUpdate(const char* itemID, double downloaded, double total, double speed) override;

    Delivery event_manager;

private:
    using Observers = std::vector<observerData>;
    struct Ending;

    void OnSendEnded(bool taken, long status);

    Frame& Push(Frame::Kind kind, const char* name);
    void Pop();
    uint32_t CheckName(const char* name) const;
    static void Notify(const Observers& observers, uint32_t value, double amount) noexcept;

    Context m_context; ///< what every event begins with
    uint32_t in_event = 0;
    std::atomic<uint32_t> sending{0}; ///< an asynchronous send is in progress; only for debuggers, nothing reads it
    const char* event_name = nullptr; ///< the host's, not copied
    Frame* top = nullptr;             ///< the innermost frame, null with no event open
    lumo::scoped_ptr<Frame> spRoot;   ///< the first of the frames, open or spare
    uint32_t depth = 0;               ///< open frames

    Observers complete_observers;
    Observers error_observers;
    Observers size_observers;
    Observers progress_observers;
};

// The name is checked before the kind, unlike in a begin call, where a null name means the call without a name.
template <typename Add>
uint32_t HandleParameters::AddNamed(const char* name, Add add)
{
    if (top == nullptr)
        return ANALYTICS_NO_EVENT;
    if (name == nullptr)
        return ANALYTICS_NAME_REQUIRED;
    if (top->kind == Frame::array)
        return ANALYTICS_NAME_REFUSED;
    add(*top->spObject, name);
    return ANALYTICS_OK;
}

template <typename Add>
uint32_t HandleParameters::AddUnnamed(Add add)
{
    if (top == nullptr)
        return ANALYTICS_NO_EVENT;
    if (top->kind == Frame::object)
        return ANALYTICS_NAME_REQUIRED;
    add(*top->spArray);
    return ANALYTICS_OK;
}

template <typename Value>
uint32_t HandleParameters::SetContext(const char* name, Value value)
{
    if (name == nullptr)
        return ANALYTICS_NAME_REQUIRED;
    return m_context.Set(name, value) ? ANALYTICS_OK : ANALYTICS_CONTEXT_FULL;
}

/// The value that a size or progress observer gets for an amount: truncated, as the bits of a signed 32-bit number.
/// NaN, and what 32 bits cannot hold, is the most negative number.
uint32_t ObservedAmount(double amount);

} // namespace AnalyticsSDK
