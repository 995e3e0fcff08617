/// @file analytics.hpp
/// The C++ face of the library: header-only C++17 over analytics.h, nothing to link that C hosts do not link.
///
///     analytics::settings settings;
///     settings.upload_url = "https://collector.example/events";
///     settings.event_log_file = "events.log";
///     settings.unique_id_file = "unique-id";
///     analytics::session session(settings);
///
///     {
///         auto launch = session.open_event("launch");
///         launch.add("user", "a");
///         auto window = launch.open_object("window");
///         window.add("width", 1280);
///     }                                          // window and launch end here, and the event is a line of the file
///     session.send();
///
/// **An event cannot be left half built.** Sessions, events, objects and arrays end when they leave their scope, also
/// by an exception. What is still open in them ends first, whatever the order: an event that ends, ends its objects;
/// adding to an object ends what was opened in it. What has ended refuses everything with result::no_event.
///
/// **Cost.** A scope is four pointers; an add is one comparison and the C call. Nothing is allocated but for settings,
/// observers and string views.
///
/// **Text, threads, ownership of names** are as analytics.h says: UTF-8, one thread at a time per session, and the name
/// of an event, object or array must outlive it.
#pragma once

#include "analytics.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace analytics {

/// What every call answers: the codes of #analytics_result.
enum class result : std::uint32_t
{
    ok = ANALYTICS_OK,
    unsupported = ANALYTICS_UNSUPPORTED,
    query_failed = ANALYTICS_QUERY_FAILED,
    no_session = ANALYTICS_NO_SESSION,
    no_memory = ANALYTICS_NO_MEMORY,
    unknown_property = ANALYTICS_UNKNOWN_PROPERTY,
    send_failed = ANALYTICS_SEND_FAILED,
    send_not_found = ANALYTICS_SEND_NOT_FOUND,
    send_proxy_login = ANALYTICS_SEND_PROXY_LOGIN,
    send_timeout = ANALYTICS_SEND_TIMEOUT,
    send_address_too_long = ANALYTICS_SEND_ADDRESS_TOO_LONG,
    unknown_observer_event = ANALYTICS_UNKNOWN_OBSERVER_EVENT,
    event_open = ANALYTICS_EVENT_OPEN,
    no_event = ANALYTICS_NO_EVENT,
    nested_open = ANALYTICS_NESTED_OPEN,
    no_object_open = ANALYTICS_NO_OBJECT_OPEN,
    no_array_open = ANALYTICS_NO_ARRAY_OPEN,
    name_required = ANALYTICS_NAME_REQUIRED,
    name_refused = ANALYTICS_NAME_REFUSED,
    system_version_unreadable = ANALYTICS_SYSTEM_VERSION_UNREADABLE
};

/// The sentence that belongs to a result. Static text, never null.
inline const char* text(result code) noexcept
{
    return analytics_result_text(static_cast<std::uint32_t>(code));
}

/// What a session is opened with; see #analytics_config for what each field means and how long it may be.
struct settings
{
    std::string upload_url;          ///< http or https
    std::string event_log_file;      ///< path
    std::string unique_id_file;      ///< path
    std::string unique_id;           ///< empty: the file's, or a new one
    std::string application_id;      ///< who sends
    std::string application_version; ///< the host's own version
    std::string certificate_file;    ///< path, PEM; may be empty
};

/// What an observer of uploads can hear; the values are told at analytics_observer_add().
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

inline result as_result(std::uint32_t code) noexcept
{
    return static_cast<result>(code);
}

/// One open object or array, the event's root included. The session knows the innermost one, and each knows the one
/// around it, by address: a scope stays where it was made, `auto o = event.open_object("o")` makes it in place.
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

    inline scope(session* owner, scope* parent, end_call how, result opened) noexcept;
    ~scope() { end(); }

    /// The C session, with nothing open in this scope any more; null when this scope has ended itself.
    inline analytics_session* innermost() noexcept;

    session* m_session;

private:
    friend class analytics::session;

    scope* m_parent;
    end_call m_end;
    result m_opened;
};

/// Chooses how the C interface takes a value: hands `call` the two functions for its type, and the value as they want
/// it.
template <typename Call>
result add_value(const Call& call, const char* value)
{
    return call(analytics_name_string_add, analytics_string_add, value);
}

template <typename Call>
result add_value(const Call& call, std::nullptr_t)
{
    return add_value(call, static_cast<const char*>(nullptr));
}

template <typename Call>
result add_value(const Call& call, std::nullopt_t)
{
    return add_value(call, nullptr);
}

template <typename Call>
result add_value(const Call& call, const std::string& value)
{
    return add_value(call, value.c_str());
}

// A view has no terminator, so it is copied for one.
template <typename Call>
result add_value(const Call& call, std::string_view value)
{
    return add_value(call, std::string(value).c_str());
}

template <typename T>
inline constexpr bool is_character =
    std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;

template <typename Call, typename T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
result add_value(const Call& call, T value)
{
    static_assert(!is_character<T>, "a single character is neither a text nor a number here: say which you mean");
    if constexpr (std::is_same_v<T, bool>) {
        return call(analytics_name_bool_add, analytics_bool_add, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return call(analytics_name_float64_add, analytics_float64_add, static_cast<double>(value));
    } else if constexpr (sizeof(T) < 4 || (sizeof(T) == 4 && std::is_signed_v<T>)) {
        return call(analytics_name_int32_add, analytics_int32_add, static_cast<std::int32_t>(value));
    } else {
        // Integers of an event have 63 bits. What is larger keeps its magnitude and six of its digits.
        if (std::is_unsigned_v<T> && value > static_cast<T>(INT64_MAX))
            return call(analytics_name_float64_add, analytics_float64_add, static_cast<double>(value));
        return call(analytics_name_int64_add, analytics_int64_add, static_cast<std::int64_t>(value));
    }
}

template <typename Call, typename T>
result add_value(const Call& call, const std::optional<T>& value)
{
    return value ? add_value(call, *value) : add_value(call, nullptr);
}

// Ends, too, what the host has opened through session::handle() and left open: the event would stay open with it.
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
    /// Adds a member: bool, any integer, float or double, any text, nullptr, or an optional of these (null without a
    /// value). Ends what is still open in this scope.
    /// @param name not null; copied
    template <typename T>
    result add(const char* name, const T& value)
    {
        analytics_session* session = innermost();
        if (!session)
            return result::no_event;
        auto by_name = [&](auto named, auto, auto plain) { return as_result(named(session, name, plain)); };
        return add_value(by_name, value);
    }

    /// Opens a member that is an object. @param name not null; must outlive the object
    [[nodiscard]] inline object open_object(const char* name) noexcept;
    /// Opens a member that is an array. @param name not null; must outlive the array
    [[nodiscard]] inline array open_array(const char* name) noexcept;

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

/// An event. Ends, and becomes a line of the event log file, when it leaves its scope: with what it holds by then, also
/// when an exception passes.
class event : public detail::members
{
    friend class session;
    event(session* owner, result opened) noexcept : members(owner, nullptr, detail::end_event, opened) {}
};

/// An object in an event or in an array. Ends when it leaves its scope.
class object : public detail::members
{
    friend class detail::members;
    friend class array;
    object(session* owner, scope* parent, result opened) noexcept : members(owner, parent, analytics_object_end, opened)
    {}
};

/// An array in an event, an object or an array. Ends when it leaves its scope.
class array : public detail::scope
{
public:
    /// Adds an element, of the same types as detail::members::add(). Ends what is still open in this array.
    template <typename T>
    result add(const T& value)
    {
        analytics_session* session = innermost();
        if (!session)
            return result::no_event;
        auto unnamed = [&](auto, auto element, auto plain) { return detail::as_result(element(session, plain)); };
        return detail::add_value(unnamed, value);
    }

    /// Opens an element that is an object.
    [[nodiscard]] object open_object() noexcept
    {
        analytics_session* session = innermost();
        return {m_session, this, session ? detail::as_result(analytics_object_begin(session)) : result::no_event};
    }
    /// Opens an element that is an array.
    [[nodiscard]] array open_array() noexcept
    {
        analytics_session* session = innermost();
        return {m_session, this, session ? detail::as_result(analytics_array_begin(session)) : result::no_event};
    }

    /// Adds a property of the machine as a text; see analytics_property_add().
    result add_property(const char* key) noexcept
    {
        analytics_session* session = innermost();
        return session ? detail::as_result(analytics_property_add(session, key)) : result::no_event;
    }

private:
    friend class detail::members;
    array(session* owner, scope* parent, result opened) noexcept : scope(owner, parent, analytics_array_end, opened) {}
};

/// An open session, which closes itself. It stays where it was made.
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

    /// Opens an event; one at a time. @param name must outlive the event
    [[nodiscard]] event open_event(const char* name) noexcept
    {
        return {this, detail::as_result(analytics_event_begin(m_handle, name))};
    }

    /// Uploads the event log file and waits for the outcome.
    result send() noexcept { return detail::as_result(analytics_send(m_handle, 1)); }
    /// Starts an upload; the observers hear the outcome.
    result start_send() noexcept { return detail::as_result(analytics_send(m_handle, 0)); }

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

inline scope::scope(session* owner, scope* parent, end_call how, result opened) noexcept
    : m_session(opened == result::ok ? owner : nullptr), m_parent(parent), m_end(how), m_opened(opened)
{
    if (m_session)
        m_session->m_innermost = this;
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

inline object members::open_object(const char* name) noexcept
{
    analytics_session* handle = innermost();
    return {m_session, this, handle ? as_result(analytics_name_object_begin(handle, name)) : result::no_event};
}

inline array members::open_array(const char* name) noexcept
{
    analytics_session* handle = innermost();
    return {m_session, this, handle ? as_result(analytics_name_array_begin(handle, name)) : result::no_event};
}

} // namespace detail
} // namespace analytics
