// The C interface: each function checks the session, translates its arguments and delegates. No exception leaves it.
#include "analytics.h"

#include <cstddef>
#include <cstring>
#include <exception>
#include <string>

#include "HandleParameters.h"
#include "Properties.h"
#include "UploadForm.h"
#include "lumo/tova/base.h"
#include "lumo/tova/tova-web.h"

using namespace AnalyticsSDK;

// Hosts and library are compiled separately: an older host would have put another field where a moved one is read.
static_assert(sizeof(analytics_config) == 2970 && alignof(analytics_config) == 1);
static_assert(offsetof(analytics_config, upload_url) == 0);
static_assert(offsetof(analytics_config, event_log_file) == 2000);
static_assert(offsetof(analytics_config, pid_file) == 2260);
static_assert(offsetof(analytics_config, unique_id) == 2520);
static_assert(offsetof(analytics_config, application_id) == 2560);
static_assert(offsetof(analytics_config, application_version) == 2660);
static_assert(offsetof(analytics_config, certificate_file) == 2710);

/// What the host's pointer points to. This separate type keeps our classes out of the C header. Final, so that deleting
/// it needs no virtual destructor: adding one to IProgressCallback would change the order of its virtual operations.
struct analytics_session final : HandleParameters
{
    using HandleParameters::HandleParameters;
};

namespace {

/// Runs `call`. Out of memory becomes a result: the caller may be C code, which an exception must not cross.
template <typename Call>
uint32_t Guarded(Call call) noexcept
{
    try {
        return call();
    } catch (const std::exception&) {
        return ANALYTICS_NO_MEMORY;
    }
}

/// Runs `call` when there is a session. Without one it returns ANALYTICS_NO_SESSION and does nothing, so that a host
/// whose session could not be opened needs no check before each call.
template <typename Call>
uint32_t With(analytics_session* session, Call call) noexcept
{
    if (session == nullptr)
        return ANALYTICS_NO_SESSION;
    return Guarded([&] { return call(*session); });
}

/// The text of a field of the record. Hosts fill fields with strncpy(), which leaves a full one without a terminator.
template <size_t size>
std::string FieldText(const char (&field)[size])
{
    return std::string(field, strnlen(field, size));
}

/// The order matters: the id is saved to, or loaded from, the file that was set before.
void Configure(Delivery& manager, const analytics_config& config)
{
    manager.SetEventLogFilePath(FieldText(config.event_log_file).c_str());
    manager.SetPidFilePath(FieldText(config.pid_file).c_str());
    manager.SetLogVersion(line_layout_version);
    if (config.unique_id[0] != '\0')
        manager.UseUniqueId(FieldText(config.unique_id).c_str());
    else
        manager.InitUniqueId();
    manager.SetApplicationId(FieldText(config.application_id).c_str());
    manager.SetApplicationVersion(FieldText(config.application_version).c_str());
    manager.SetCertificateFile(FieldText(config.certificate_file).c_str());
}

/// Throws when memory runs out. All other failures (files, threads) are ignored: a host without working analytics is
/// better than one that does not start.
analytics_session* Open(const analytics_config& config)
{
    lumo::scoped_ptr<analytics_session> session(new analytics_session(FieldText(config.upload_url).c_str()));
    Configure(session->event_manager, config);
    try {
        session->event_manager.Init();
    } catch (const std::exception&) {
        session->event_manager.Close(); // the worker may run already, and must not outlive the session
        throw;
    }
    return session.Detach();
}

} // namespace

analytics_session* analytics_initialize(const analytics_config* config)
{
    if (config == nullptr)
        return nullptr;
    tova_http_initialize(); // counted, since the host may make requests with tova itself, before and after the session
    try {
        return Open(*config);
    } catch (const std::exception&) {
        tova_http_shutdown();
        return nullptr;
    }
}

void analytics_shutdown(analytics_session* session)
{
    if (session == nullptr)
        return;
    session->event_manager.Close(); // after this no observer of the session is called
    delete session;
    tova_http_shutdown();
}

// Building. The session knows which call is allowed when; a begin call without a name is the named one with null.

uint32_t analytics_event_begin(analytics_session* session, const char* name)
{
    return With(session, [=](HandleParameters& handle) { return handle.BeginEvent(name); });
}

uint32_t analytics_event_end(analytics_session* session)
{
    return With(session, [](HandleParameters& handle) { return handle.EndEvent(); });
}

uint32_t analytics_name_object_begin(analytics_session* session, const char* name)
{
    return With(session, [=](HandleParameters& handle) { return handle.BeginFrame(Frame::object, name); });
}

uint32_t analytics_object_begin(analytics_session* session)
{
    return analytics_name_object_begin(session, nullptr);
}

uint32_t analytics_object_end(analytics_session* session)
{
    return With(session, [](HandleParameters& handle) { return handle.EndFrame(Frame::object); });
}

uint32_t analytics_name_array_begin(analytics_session* session, const char* name)
{
    return With(session, [=](HandleParameters& handle) { return handle.BeginFrame(Frame::array, name); });
}

uint32_t analytics_array_begin(analytics_session* session)
{
    return analytics_name_array_begin(session, nullptr);
}

uint32_t analytics_array_end(analytics_session* session)
{
    return With(session, [](HandleParameters& handle) { return handle.EndFrame(Frame::array); });
}

namespace {

/// Adds a value to the innermost object, or array, with the document's operation for its type. Its result is not passed
/// on: a document refuses nothing that the session allows.
template <auto add, typename... Value>
uint32_t AddNamed(analytics_session* session, const char* name, Value... value)
{
    return With(session, [=](HandleParameters& handle) {
        return handle.AddNamed(name, [=](LogObject& object, const char* key) { (object.*add)(key, value...); });
    });
}

template <auto add, typename... Value>
uint32_t AddUnnamed(analytics_session* session, Value... value)
{
    return With(session, [=](HandleParameters& handle) {
        return handle.AddUnnamed([=](LogArray& array) { (array.*add)(value...); });
    });
}

} // namespace

uint32_t analytics_name_string_add(analytics_session* session, const char* name, const char* value)
{
    return AddNamed<&LogObject::AddString>(session, name, value);
}

uint32_t analytics_name_int32_add(analytics_session* session, const char* name, int32_t value)
{
    return AddNamed<&LogObject::AddInt>(session, name, value);
}

uint32_t analytics_name_int64_add(analytics_session* session, const char* name, int64_t value)
{
    return AddNamed<&LogObject::AddInt64>(session, name, value);
}

uint32_t analytics_name_uint64_add(analytics_session* session, const char* name, uint64_t value)
{
    return AddNamed<&LogObject::AddUInt64>(session, name, value);
}

uint32_t analytics_name_text_add(analytics_session* session, const char* name, const char* text, size_t size)
{
    return AddNamed<&LogObject::AddText>(session, name, text, size);
}

uint32_t analytics_name_bool_add(analytics_session* session, const char* name, bool value)
{
    return AddNamed<&LogObject::AddBoolean>(session, name, value);
}

uint32_t analytics_name_float64_add(analytics_session* session, const char* name, double value)
{
    return AddNamed<&LogObject::AddDouble>(session, name, value);
}

uint32_t analytics_string_add(analytics_session* session, const char* value)
{
    return AddUnnamed<&LogArray::AddString>(session, value);
}

uint32_t analytics_int32_add(analytics_session* session, int32_t value)
{
    return AddUnnamed<&LogArray::AddInt>(session, value);
}

uint32_t analytics_int64_add(analytics_session* session, int64_t value)
{
    return AddUnnamed<&LogArray::AddInt64>(session, value);
}

uint32_t analytics_uint64_add(analytics_session* session, uint64_t value)
{
    return AddUnnamed<&LogArray::AddUInt64>(session, value);
}

uint32_t analytics_text_add(analytics_session* session, const char* text, size_t size)
{
    return AddUnnamed<&LogArray::AddText>(session, text, size);
}

uint32_t analytics_bool_add(analytics_session* session, bool value)
{
    return AddUnnamed<&LogArray::AddBoolean>(session, value);
}

uint32_t analytics_float64_add(analytics_session* session, double value)
{
    return AddUnnamed<&LogArray::AddDouble>(session, value);
}

uint32_t analytics_context_string_set(analytics_session* session, const char* name, const char* value)
{
    return With(session, [=](HandleParameters& handle) { return handle.SetContext(name, value); });
}

uint32_t analytics_context_int64_set(analytics_session* session, const char* name, int64_t value)
{
    return With(session,
                [=](HandleParameters& handle) { return handle.SetContext(name, static_cast<long long>(value)); });
}

uint32_t analytics_context_float64_set(analytics_session* session, const char* name, double value)
{
    return With(session, [=](HandleParameters& handle) { return handle.SetContext(name, value); });
}

uint32_t analytics_context_bool_set(analytics_session* session, const char* name, bool value)
{
    return With(session, [=](HandleParameters& handle) { return handle.SetContext(name, value); });
}

uint32_t analytics_context_remove(analytics_session* session, const char* name)
{
    return With(session, [=](HandleParameters& handle) { return handle.RemoveContext(name); });
}

uint32_t analytics_log_get(analytics_session* session, char* buffer, size_t length)
{
    return With(session, [=](HandleParameters& handle) -> uint32_t {
        // Deliberate: strncpy(), which may leave no terminator, because hosts pass a zeroed buffer and one byte less
        // than its size.
        if (buffer != nullptr)
            std::strncpy(buffer, handle.event_manager.GetLastLoggedEvent(), length);
        return ANALYTICS_OK;
    });
}

// Needs no session: hosts read properties before they open one, or without one. A null buffer cannot take even an empty
// text, so it is misuse and aborts.
uint32_t analytics_property_get(analytics_session*, const char* key, char* buffer, unsigned int size)
{
    tova_assert_at(190, buffer);
    return Guarded([=] { return GetProperty(key, buffer, size); });
}

void analytics_property_each(void (*each)(void* context, const char* key, const char* sentence), void* context)
{
    if (each != nullptr)
        EachProperty(each, context);
}

uint32_t analytics_property_add(analytics_session* session, const char* name)
{
    return With(session, [=](HandleParameters& handle) { return handle.AddProperty(name); });
}

uint32_t analytics_observer_add(analytics_session* session, const char* event, analytics_observer callback,
                                void* context)
{
    return With(session, [=](HandleParameters& handle) { return handle.AddObserver(event, callback, context); });
}

// Any value but 0 waits: other languages have other numbers for true.
uint32_t analytics_send(analytics_session* session, int synchronous)
{
    return With(session, [=](HandleParameters& handle) { return handle.Send(synchronous != 0); });
}

uint32_t analytics_send_for(analytics_session* session, uint32_t wait_ms)
{
    return With(session, [=](HandleParameters& handle) { return handle.SendFor(wait_ms); });
}

// By its bytes: a C host may pass any number, and reading one that the enumeration lacks is undefined in C++.
uint32_t analytics_consent_set(analytics_session* session, analytics_consent consent)
{
    uint32_t number;
    static_assert(sizeof number == sizeof consent);
    std::memcpy(&number, &consent, sizeof number);
    return With(session, [=](HandleParameters& handle) { return handle.SetConsent(number); });
}

uint32_t analytics_option_set(analytics_session* session, const char* key, const char* value)
{
    return With(session, [=](HandleParameters& handle) { return handle.SetOption(key, value); });
}

uint32_t analytics_option_get(analytics_session* session, const char* key, char* value, size_t size)
{
    return With(session, [=](HandleParameters& handle) { return handle.GetOption(key, value, size); });
}

uint32_t analytics_stats_get(analytics_session* session, analytics_stats* stats, size_t size)
{
    return With(session, [=](HandleParameters& handle) { return handle.GetStats(stats, size); });
}

uint32_t analytics_last_error(analytics_session* session, char* text, size_t size)
{
    return With(session, [=](HandleParameters& handle) { return handle.GetLastError(text, size); });
}

const char* analytics_version(void)
{
    return ANALYTICS_VERSION;
}

// A table rather than an array indexed by code, because the codes have gaps. Never null, so that hosts may print the
// result.
const char* analytics_result_text(uint32_t code)
{
    static constexpr struct
    {
        uint32_t code;
        const char* text;
    } sentences[] = {
        {ANALYTICS_OK, "Done."},
        {ANALYTICS_UNSUPPORTED, "This machine has no such property."},
        {ANALYTICS_QUERY_FAILED, "The operating system did not answer the question for this property."},
        {ANALYTICS_NO_SESSION, "There is no session: the handle is null."},
        {ANALYTICS_NO_MEMORY, "Memory ran out."},
        {ANALYTICS_UNKNOWN_PROPERTY, "There is no property with this key."},
        {ANALYTICS_SEND_FAILED, "The upload failed or could not be started; the events are kept."},
        {ANALYTICS_SEND_NOT_FOUND, "The upload failed: the server does not know the address (404)."},
        {ANALYTICS_SEND_PROXY_LOGIN, "The upload failed: the proxy asks for a login (407)."},
        {ANALYTICS_SEND_TIMEOUT, "The upload failed: the server waited too long for the request (408)."},
        {ANALYTICS_SEND_ADDRESS_TOO_LONG, "The upload failed: the server found the address too long (414)."},
        {ANALYTICS_UNKNOWN_OBSERVER_EVENT, "Observers can be added for complete, error, size and progress only."},
        {ANALYTICS_SEND_TIME_OVER, "Time ran out while events were still waiting; they are kept."},
        {ANALYTICS_SEND_NO_CONSENT, "Nothing is sent without the user's consent."},
        {ANALYTICS_EVENT_OPEN, "An event is open already."},
        {ANALYTICS_NO_EVENT, "No event is open."},
        {ANALYTICS_NESTED_OPEN, "An object or array of the event is still open."},
        {ANALYTICS_NO_OBJECT_OPEN, "No object is open besides the event itself."},
        {ANALYTICS_NO_ARRAY_OPEN, "No array is open, only the event itself."},
        {ANALYTICS_NAME_REQUIRED, "An object is innermost: what is added needs a name, and no array can end here."},
        {ANALYTICS_NAME_REFUSED, "An array is innermost: what is added has no name, and no object can end here."},
        {ANALYTICS_SYSTEM_VERSION_UNREADABLE, "The version of the operating system could not be read."},
        {ANALYTICS_UNKNOWN_OPTION, "There is no option with this key."},
        {ANALYTICS_VALUE_REFUSED, "The value is not one that can be taken, or there is no room for it."},
        {ANALYTICS_CONTEXT_FULL, "The context has as many members as it can."},
    };
    for (const auto& sentence : sentences)
        if (sentence.code == code)
            return sentence.text;
    return "This is not a result code of this library.";
}
