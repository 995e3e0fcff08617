// The C++ face of the library: header-only C++17 over analytics.h, nothing to link that C hosts do not link.
//
//     analytics::settings settings;
//     settings.upload_url = "https://collector.example/events";
//     settings.event_log_file = "events.log";
//     settings.unique_id_file = "unique-id";
//     analytics::session session(settings);
//
//     {
//         auto launch = session.open_event("launch");
//         launch.add("user", "a");
//         auto window = launch.open_object("window");
//         window.add("width", 1280);
//     }                                          // window and launch end here, and the event is a line of the file
//     session.log("click", {{"button", "ok"}, {"count", 3}, {"modifiers", {"shift", "alt"}}}); // a whole event
//     session.send();
//
// **An event cannot be left half built.** Sessions, events, objects and arrays end when they leave their scope, also
// by an exception. What is still open in them ends first, whatever the order: an event that ends, ends its objects;
// adding to an object ends what was opened in it. What has ended refuses everything with result::no_event.
//
// **Values.** bool, any integer, float or double, any text, nullptr; a duration, written in whole milliseconds; an
// optional of these, null without a value; a range of these (vector, array, span, braces), which becomes an array, and
// a range of pairs of a name and a value (map, braces), which becomes an object. Any other type is a compile error of
// one sentence.
//
// **Names** are texts, too: const char*, std::string or std::string_view. That of an event, object or array must
// outlive it when it is a const char*; the others are kept.
//
// **Cost.** A scope is four pointers and an empty string; an add is one comparison and the C call. Nothing is
// allocated but for settings, observers, string views and names that are kept.
//
// **Text and threads** are as analytics.h says: UTF-8, one thread at a time per session.
#pragma once

#include "analytics_values.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace analytics {

/// What a session is opened with; see #analytics_config for what each field means and how long it may be.
struct settings
{
    std::string upload_url;          ///< http or https
    std::string event_log_file;      ///< path
    std::string unique_id_file;      ///< path
    std::string unique_id;           ///< empty: the file's, or a new one
    std::string application_id;      ///< the application that sends
    std::string application_version; ///< the host's own version
    std::string certificate_file;    ///< path, PEM; may be empty
};

/// The events of an upload that an observer can be registered for; analytics_observer_add() describes the values.
enum class upload
{
    complete,
    error,
    size,
    progress
};

class session;
class event;
class object;
class array;

namespace detail {

/// One open object or array, the event's root included. The session knows the innermost one, and each knows the one
/// around it, by address: a scope cannot be moved; `auto o = event.open_object("o")` constructs it in place.
class scope
{
public:
    scope(const scope&) = delete;
    scope& operator=(const scope&) = delete;

    /// False once it has ended, and when it could not be opened.
    explicit operator bool() const noexcept { return m_session != nullptr; }
    /// What opening it answered; result::ok also after it has ended.
    result opened() const noexcept { return m_opened; }
    /// Ends it now, and first what is still open in it. @return result::no_event when it has ended already
    inline result end() noexcept;

protected:
    using end_call = std::uint32_t (*)(analytics_session*);

    scope(scope* parent, end_call how) noexcept : m_parent(parent), m_end(how) {}
    ~scope() { end(); }

    /// The C session, with nothing open in this scope any more; null when this scope has ended itself.
    inline analytics_session* innermost() noexcept;
    /// Opens this scope: makes it the innermost one of its session when `opened` says so.
    inline void begin(session* owner, result opened) noexcept;
    /// Opens it in another one, by a call of the C interface.
    template <typename Call, typename... Name>
    void begin_in(scope& within, Call call, Name... name) noexcept
    {
        analytics_session* session = within.innermost();
        begin(within.m_session, session ? as_result(call(session, name...)) : result::no_event);
    }

    /// The name as C text, valid for as long as this scope is open.
    template <typename Name>
    const char* keep(const Name& name)
    {
        if constexpr (is_c_text<Name>)
            return name;
        with_c_text(name, [&](const char* text) {
            m_name = text;
            return result::ok;
        });
        return m_name.c_str();
    }

private:
    friend class analytics::session;

    session* m_session = nullptr;
    scope* m_parent;
    end_call m_end;
    result m_opened = result::no_event;
    std::string m_name;
};

// Also ends what the host has opened through session::handle() and left open: otherwise the event would stay open.
inline std::uint32_t end_event(analytics_session* session) noexcept
{
    std::uint32_t code = analytics_event_end(session);
    for (; code == ANALYTICS_NESTED_OPEN; code = analytics_event_end(session)) {
        if (analytics_object_end(session) == ANALYTICS_NAME_REFUSED) // the innermost is an array
            analytics_array_end(session);
    }
    return code;
}

/// What an event and an object have in common: members, each with a name.
class members : public scope
{
public:
    /// Adds a member, a value of any kind that the beginning of this file lists. Ends what is still open in this scope.
    /// @param name not null; copied
    /// @return the first refusal, when a range met one
    template <typename Name, typename T>
    result add(const Name& name, const T& value)
    {
        analytics_session* session = innermost();
        return session ? add_named(session, name, value) : result::no_event;
    }
    /// Adds an array from braces: `add("ids", {1, 2})`.
    template <typename Name, typename T>
    result add(const Name& name, std::initializer_list<T> elements)
    {
        return add<Name, std::initializer_list<T>>(name, elements);
    }
    /// Adds an object from braces: `add("size", {{"width", 640}, {"height", 480}})`.
    template <typename Name>
    result add(const Name& name, std::initializer_list<member> object)
    {
        return add<Name, std::initializer_list<member>>(name, object);
    }

    /// Opens a member that is an object. @param name not null
    template <typename Name>
    [[nodiscard]] object open_object(const Name& name);
    /// Opens a member that is an array. @param name not null
    template <typename Name>
    [[nodiscard]] array open_array(const Name& name);

    /// Adds a property of the machine under its own key; see analytics_property_add().
    result add_property(const char* key) noexcept
    {
        analytics_session* session = innermost();
        return session ? as_result(analytics_property_add(session, key)) : result::no_event;
    }

protected:
    using scope::scope;
    ~members() = default;
};

} // namespace detail

/// An event. Ends, and becomes a line of the event log file, when it leaves its scope, also by an exception: with the
/// members that it has by then.
class event : public detail::members
{
    friend class session;
    template <typename Name>
    event(session* owner, analytics_session* handle, const Name& name) : members(nullptr, detail::end_event)
    {
        begin(owner, detail::as_result(analytics_event_begin(handle, keep(name))));
    }
};

/// An object in an event or in an array. Ends when it leaves its scope.
class object : public detail::members
{
    friend class detail::members;
    friend class array;
    explicit object(scope& within) noexcept : members(&within, analytics_object_end)
    {
        begin_in(within, analytics_object_begin);
    }
    template <typename Name>
    object(scope& within, const Name& name) : members(&within, analytics_object_end)
    {
        begin_in(within, analytics_name_object_begin, keep(name));
    }
};

/// An array in an event, an object or an array. Ends when it leaves its scope.
class array : public detail::scope
{
public:
    /// Adds an element, of the same kinds as detail::members::add(). Ends what is still open in this array.
    template <typename T>
    result add(const T& value)
    {
        analytics_session* session = innermost();
        return session ? detail::add_element(session, value) : result::no_event;
    }
    /// Adds an array from braces.
    template <typename T>
    result add(std::initializer_list<T> elements)
    {
        return add<std::initializer_list<T>>(elements);
    }
    /// Adds an object from braces.
    result add(std::initializer_list<detail::member> object)
    {
        return add<std::initializer_list<detail::member>>(object);
    }

    /// Opens an element that is an object.
    [[nodiscard]] object open_object() noexcept { return object(*this); }
    /// Opens an element that is an array.
    [[nodiscard]] array open_array() noexcept { return array(static_cast<scope&>(*this)); }

    /// Adds a property of the machine as a text; see analytics_property_add().
    result add_property(const char* key) noexcept
    {
        analytics_session* session = innermost();
        return session ? detail::as_result(analytics_property_add(session, key)) : result::no_event;
    }

private:
    friend class detail::members;
    explicit array(scope& within) noexcept : scope(&within, analytics_array_end)
    {
        begin_in(within, analytics_array_begin);
    }
    template <typename Name>
    array(scope& within, const Name& name) : scope(&within, analytics_array_end)
    {
        begin_in(within, analytics_name_array_begin, keep(name));
    }
};

/// An open session, closed by its destructor. It can be neither copied nor moved.
class session
{
public:
    /// Opens a session. False as a condition, and refusing everything with result::no_session, when a text of the
    /// settings is longer than its field or memory ran out.
    explicit session(const settings& given) : m_handle(open(given)) {}
    /// Opens one as a C host does.
    explicit session(const analytics_config& config) : m_handle(analytics_initialize(&config)) {}
    session(const session&) = delete;
    session& operator=(const session&) = delete;
    /// Ends an event that is still open, then closes the session. Not on an observer's thread.
    ~session()
    {
        while (m_innermost)
            m_innermost->end();
        analytics_shutdown(m_handle);
    }

    /// False when it could not be opened.
    explicit operator bool() const noexcept { return m_handle != nullptr; }
    /// The session of the C interface, still owned by this object. Events opened through it are not known here; objects
    /// and arrays that are opened through it in an event of this face, and left open, end with the event.
    analytics_session* handle() const noexcept { return m_handle; }

    /// Opens an event; one at a time.
    template <typename Name>
    [[nodiscard]] event open_event(const Name& name)
    {
        return {this, m_handle, name};
    }

    /// Logs a whole event: `log("click", {{"button", "ok"}, {"count", 3}, {"size", {{"width", 640}}}})`.
    /// @return as open_event(), else the first refusal of a member; the event is logged without that one
    template <typename Name>
    result log(const Name& name, std::initializer_list<detail::member> members = {})
    {
        return detail::with_c_text(name, [&](const char* text) {
            event whole(this, m_handle, text);
            return whole ? detail::add_all(m_handle, members) : whole.opened();
        });
    }

    /// Uploads the event log file and waits for the outcome.
    result send() noexcept { return detail::as_result(analytics_send(m_handle, 1)); }
    /// Starts an upload; the observers receive the outcome.
    result start_send() noexcept { return detail::as_result(analytics_send(m_handle, 0)); }

    /// Uploads and waits for the outcome, at most that long and 100 ms more. @return also result::send_time_over
    result send_for(std::chrono::milliseconds wait) noexcept
    {
        constexpr std::chrono::milliseconds most{std::numeric_limits<std::uint32_t>::max()};
        const auto bounded = std::clamp(wait, std::chrono::milliseconds::zero(), most);
        return detail::as_result(analytics_send_for(m_handle, static_cast<std::uint32_t>(bounded.count())));
    }

    /// Says what the user has agreed to, at each start before the first event; see analytics_consent_set().
    result consent(analytics::consent given) noexcept
    {
        return detail::as_result(analytics_consent_set(m_handle, static_cast<analytics_consent>(given)));
    }

    /// Sets an option, see docs/options.md: a word, or a number.
    /// @return also result::unknown_option, result::value_refused
    result set_option(const char* key, const char* value) noexcept
    {
        return detail::as_result(analytics_option_set(m_handle, key, value));
    }
    /// The same.
    result set_option(const char* key, std::int64_t value) { return set_option(key, std::to_string(value).c_str()); }
    /// Reads an option. @param value receives it when the result is ok
    result option(const char* key, std::string& value) const
    {
        char text[32];
        const result code = detail::as_result(analytics_option_get(m_handle, key, text, sizeof text));
        if (code == result::ok)
            value = text;
        return code;
    }
    /// What the session has accepted, sent and lost, and what waits; all zero without a session.
    analytics_stats stats() const noexcept
    {
        analytics_stats figures{};
        analytics_stats_get(m_handle, &figures, sizeof figures);
        return figures;
    }
    /// Why the last request failed, and what to do; empty when it did not.
    std::string last_error() const
    {
        char sentence[1024] = "";
        analytics_last_error(m_handle, sentence, sizeof sentence);
        return sentence;
    }

    /// Registers an observer of asynchronous uploads, before the first of them.
    /// @param observer called as observer(std::uint32_t value, double amount) on a thread of the library's; kept until
    ///                 the session closes. What it throws ends the program
    template <typename Observer>
    result observe(upload what, Observer&& observer)
    {
        static constexpr const char* names[] = {"complete", "error", "size", "progress"};
        m_observers.push_back(std::make_unique<callback>(std::forward<Observer>(observer)));
        return detail::as_result(
            analytics_observer_add(m_handle, names[static_cast<int>(what)], forward_to, m_observers.back().get()));
    }

    /// Sets a member that every later event begins with: a text, a number or a bool. @return also result::context_full
    template <typename Name, typename T>
    result context(const Name& name, const T& value)
    {
        return detail::with_c_text(name, [&](const char* key) {
            if constexpr (std::is_same_v<T, bool>)
                return detail::as_result(analytics_context_bool_set(m_handle, key, value));
            else if constexpr (std::is_floating_point_v<T>)
                return detail::as_result(analytics_context_float64_set(m_handle, key, static_cast<double>(value)));
            else if constexpr (std::is_integral_v<T>)
                // As in events: above 2^63 - 1 a number becomes a double.
                return detail::as_result(
                    std::is_unsigned_v<T> && value > static_cast<T>(INT64_MAX)
                        ? analytics_context_float64_set(m_handle, key, static_cast<double>(value))
                        : analytics_context_int64_set(m_handle, key, static_cast<std::int64_t>(value)));
            else
                return detail::with_c_text(value, [&](const char* text) {
                    return detail::as_result(analytics_context_string_set(m_handle, key, text));
                });
        });
    }
    /// Removes such a member, if it is there.
    template <typename Name>
    result remove_context(const Name& name)
    {
        return detail::with_c_text(
            name, [&](const char* key) { return detail::as_result(analytics_context_remove(m_handle, key)); });
    }
    /// Has every later event begin with these stamps, all of them by default; see the option `stamp`.
    result stamp(const char* stamps = "time_ms,sequence,session,event") noexcept { return set_option("stamp", stamps); }

    /// Reads a property of the machine. @param value receives it, empty when the result is not ok
    result property(const char* key, std::string& value) const
    {
        char buffer[200];
        result code = detail::as_result(analytics_property_get(m_handle, key, buffer, sizeof buffer));
        value = buffer;
        return code;
    }

private:
    friend class detail::scope;
    using callback = std::function<void(std::uint32_t, double)>;

    static void forward_to(void* context, std::uint32_t value, double amount) noexcept
    {
        (*static_cast<callback*>(context))(value, amount);
    }

    static analytics_session* open(const settings& given)
    {
        analytics_config config = {};
        bool fits = copy(config.upload_url, given.upload_url) && copy(config.event_log_file, given.event_log_file) &&
                    copy(config.pid_file, given.unique_id_file) && copy(config.unique_id, given.unique_id) &&
                    copy(config.application_id, given.application_id) &&
                    copy(config.application_version, given.application_version) &&
                    copy(config.certificate_file, given.certificate_file);
        return fits ? analytics_initialize(&config) : nullptr;
    }

    // A text may fill its field: the library reads the field to its size and no further.
    template <std::size_t size>
    static bool copy(char (&field)[size], const std::string& given)
    {
        if (given.size() > size)
            return false;
        std::memcpy(field, given.data(), given.size());
        return true;
    }

    analytics_session* m_handle;
    detail::scope* m_innermost = nullptr;
    std::vector<std::unique_ptr<callback>> m_observers;
};

namespace detail {

inline void scope::begin(session* owner, result opened) noexcept
{
    m_opened = opened;
    if (opened == result::ok) {
        m_session = owner;
        owner->m_innermost = this;
    }
}

inline analytics_session* scope::innermost() noexcept
{
    if (!m_session)
        return nullptr;
    while (m_session->m_innermost != this)
        m_session->m_innermost->end();
    return m_session->m_handle;
}

inline result scope::end() noexcept
{
    analytics_session* handle = innermost();
    if (!handle)
        return result::no_event;
    m_session->m_innermost = m_parent;
    m_session = nullptr;
    return as_result(m_end(handle));
}

template <typename Name>
object members::open_object(const Name& name)
{
    return object(*this, name);
}

template <typename Name>
array members::open_array(const Name& name)
{
    return array(*this, name);
}

} // namespace detail
} // namespace analytics
