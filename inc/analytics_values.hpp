// The result codes and the values of the C++ face: what each type of C++ becomes in an event. Hosts include
// analytics.hpp.
#pragma once

#include "analytics.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

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
    send_time_over = ANALYTICS_SEND_TIME_OVER,
    send_no_consent = ANALYTICS_SEND_NO_CONSENT,
    event_open = ANALYTICS_EVENT_OPEN,
    no_event = ANALYTICS_NO_EVENT,
    nested_open = ANALYTICS_NESTED_OPEN,
    no_object_open = ANALYTICS_NO_OBJECT_OPEN,
    no_array_open = ANALYTICS_NO_ARRAY_OPEN,
    name_required = ANALYTICS_NAME_REQUIRED,
    name_refused = ANALYTICS_NAME_REFUSED,
    system_version_unreadable = ANALYTICS_SYSTEM_VERSION_UNREADABLE,
    unknown_option = ANALYTICS_UNKNOWN_OPTION,
    value_refused = ANALYTICS_VALUE_REFUSED,
    context_full = ANALYTICS_CONTEXT_FULL
};

/// What the user has agreed to: the values of #analytics_consent.
enum class consent : std::uint32_t
{
    given = ANALYTICS_CONSENT_GIVEN,
    unknown = ANALYTICS_CONSENT_UNKNOWN,
    revoked = ANALYTICS_CONSENT_REVOKED
};

/// The sentence that belongs to a result. Static text, never null.
inline const char* text(result code) noexcept
{
    return analytics_result_text(static_cast<std::uint32_t>(code));
}

/// A value that is written in full: an unsigned integer with all its digits, where a plain one above 2^63 - 1 becomes a
/// double, and a text with the NULs in it, where a plain one ends at the first: `event.add("id", exact{id})`.
template <typename T>
struct exact
{
    T value; ///< an integer, or a text; a std::string_view must outlive the call
};
/// @cond
template <typename T>
exact(T) -> exact<T>;
/// @endcond

namespace detail {

inline result as_result(std::uint32_t code) noexcept
{
    return static_cast<result>(code);
}

/// @name Values: how each kind of them is handed to the C interface
/// @{

template <typename T>
inline constexpr bool is_c_text = std::is_convertible_v<const T&, const char*>;
template <typename T>
inline constexpr bool is_text = is_c_text<T> || std::is_convertible_v<const T&, std::string_view> ||
                                std::is_convertible_v<const T&, const std::string&>;

template <typename T>
inline constexpr bool is_character =
    std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;
#ifdef __cpp_char8_t
template <>
inline constexpr bool is_character<char8_t> = true;
#endif

template <typename T>
inline constexpr bool is_optional = false;
template <typename T>
inline constexpr bool is_optional<std::optional<T>> = true;

template <typename T>
inline constexpr bool is_exact = false;
template <typename T>
inline constexpr bool is_exact<exact<T>> = std::is_convertible_v<const T&, std::string_view> ||
                                           (std::is_integral_v<T> && !is_character<T>);

template <typename T>
inline constexpr bool is_duration = false;
template <typename Count, typename Unit>
inline constexpr bool is_duration<std::chrono::duration<Count, Unit>> = true;

template <typename T>
using element_of = std::decay_t<decltype(*std::begin(std::declval<const T&>()))>;
template <typename T, typename = void>
inline constexpr bool is_range = false;
template <typename T>
inline constexpr bool is_range<T, std::void_t<element_of<T>, decltype(std::begin(std::declval<const T&>()) !=
                                                                      std::end(std::declval<const T&>()))>> = true;

/// Calls `use` with a NUL-terminated text. Only a string view, which has no terminator, is copied.
template <typename Text, typename Use>
result with_c_text(const Text& text, const Use& use)
{
    if constexpr (is_c_text<Text>) {
        return use(static_cast<const char*>(text));
    } else if constexpr (std::is_convertible_v<const Text&, const std::string&>) {
        return use(static_cast<const std::string&>(text).c_str());
    } else if constexpr (is_text<Text>) {
        return use(std::string(std::string_view(text)).c_str());
    } else {
        static_assert(is_text<Text>, "a name is a const char*, a std::string or a std::string_view, in UTF-8");
        return result::name_required;
    }
}

/// Where a value goes: to a member of an object, or to an element of an array. Each has its function of the C
/// interface.
struct as_member
{
    analytics_session* session;
    const char* name;

    template <typename Named, typename Plain, typename... Value>
    result operator()(Named call, Plain, Value... value) const
    {
        return as_result(call(session, name, value...));
    }
};

struct as_element
{
    analytics_session* session;

    template <typename Named, typename Plain, typename... Value>
    result operator()(Named, Plain call, Value... value) const
    {
        return as_result(call(session, value...));
    }
};

template <typename Place, typename T>
result add_value(const Place& place, const T& value);

// Checked first, so that the compiler's message is short.
template <typename T>
constexpr bool is_value();
template <typename T>
constexpr bool is_element();

template <typename Name, typename T>
result add_named(analytics_session* session, const Name& name, const T& value)
{
    static_assert(is_value<T>(),
                  "an event holds bool, numbers, UTF-8 text, nullptr, durations, optionals and ranges of "
                  "these: turn this value into one of them");
    return with_c_text(name, [&](const char* text) {
        if constexpr (is_value<T>())
            return add_value(as_member{session, text}, value);
        return result::name_refused;
    });
}

template <typename T>
result add_element(analytics_session* session, const T& value)
{
    static_assert(is_value<T>(),
                  "an array holds bool, numbers, UTF-8 text, nullptr, durations, optionals and ranges of "
                  "these: turn this value into one of them");
    if constexpr (is_value<T>())
        return add_value(as_element{session}, value);
    return result::name_refused;
}

/// A member in braces, of any kind. It only points to its name and value, so it is valid within one full expression.
class member
{
public:
    template <typename Name, typename T>
    member(const Name& name, const T& value) noexcept
        : m_name(std::addressof(name)), m_value(std::addressof(value)), m_add(add<Name, T>)
    {}
    template <typename Name, typename T>
    member(const Name& name, const std::initializer_list<T>& array) noexcept
        : m_name(std::addressof(name)), m_value(&array), m_add(add<Name, std::initializer_list<T>>)
    {}
    template <typename Name>
    member(const Name& name, const std::initializer_list<member>& object) noexcept
        : m_name(std::addressof(name)), m_value(&object), m_add(add<Name, std::initializer_list<member>>)
    {}

    result add_to(analytics_session* session) const { return m_add(session, m_name, m_value); }

private:
    template <typename Name, typename T>
    static result add(analytics_session* session, const void* name, const void* value)
    {
        return add_named(session, *static_cast<const Name*>(name), *static_cast<const T*>(value));
    }

    const void* m_name;
    const void* m_value;
    result (*m_add)(analytics_session*, const void*, const void*);
};

template <typename T>
inline constexpr bool is_named = std::is_same_v<T, member>;
template <typename Name, typename T>
inline constexpr bool is_named<std::pair<Name, T>> = is_text<Name>;

template <typename T>
constexpr bool is_value()
{
    if constexpr (is_text<T> || is_duration<T> || is_exact<T> || std::is_same_v<T, std::nullopt_t>)
        return true;
    else if constexpr (std::is_arithmetic_v<T>)
        return !is_character<T>; // it could be a text or a number
    else if constexpr (is_optional<T>)
        return is_value<typename T::value_type>();
    else if constexpr (is_range<T>)
        return is_element<element_of<T>>();
    else
        return false;
}

template <typename T>
constexpr bool is_element()
{
    if constexpr (std::is_same_v<T, member>)
        return true;
    else if constexpr (is_named<T>)
        return is_value<typename T::second_type>();
    else
        return is_value<T>();
}

inline result add_each(analytics_session* session, const member& each)
{
    return each.add_to(session);
}

template <typename T>
result add_each(analytics_session* session, const T& each)
{
    if constexpr (is_named<T>)
        return add_named(session, each.first, each.second);
    else
        return add_value(as_element{session}, each);
}

/// Adds each and answers the first refusal; the others are added all the same.
template <typename Range>
result add_all(analytics_session* session, const Range& range)
{
    result first = result::ok;
    for (const auto& each : range) {
        result code = add_each(session, each);
        first = first == result::ok ? code : first;
    }
    return first;
}

template <typename Place, typename Range>
result add_range(const Place& place, const Range& range)
{
    constexpr bool object = is_named<element_of<Range>>;
    result opened = object ? place(analytics_name_object_begin, analytics_object_begin)
                           : place(analytics_name_array_begin, analytics_array_begin);
    if (opened != result::ok)
        return opened;
    struct closing // also when reading the range throws
    {
        analytics_session* session;
        ~closing() { object ? analytics_object_end(session) : analytics_array_end(session); }
    } at_the_end{place.session};
    return add_all(place.session, range);
}

template <typename Place, typename T>
result add_number(const Place& place, T value)
{
    if constexpr (std::is_same_v<T, bool>) {
        return place(analytics_name_bool_add, analytics_bool_add, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return place(analytics_name_float64_add, analytics_float64_add, static_cast<double>(value));
    } else if constexpr (sizeof(T) < 4 || (sizeof(T) == 4 && std::is_signed_v<T>)) {
        return place(analytics_name_int32_add, analytics_int32_add, static_cast<std::int32_t>(value));
    } else {
        // Integers of an event have 63 bits. What is larger keeps its magnitude and six of its digits.
        if (std::is_unsigned_v<T> && value > static_cast<T>(INT64_MAX))
            return place(analytics_name_float64_add, analytics_float64_add, static_cast<double>(value));
        return place(analytics_name_int64_add, analytics_int64_add, static_cast<std::int64_t>(value));
    }
}

template <typename Place, typename Count, typename Unit>
result add_duration(const Place& place, std::chrono::duration<Count, Unit> value)
{
    const double ms = std::chrono::duration<double, std::milli>(value).count();
    // Longer than 200,000 years, or NaN: no integer holds it.
    return std::abs(ms) < 0x1p53 ? add_number(place, std::llround(ms)) : add_number(place, ms);
}

template <typename Place, typename T>
result add_exact(const Place& place, const T& value)
{
    if constexpr (std::is_unsigned_v<T> && !std::is_same_v<T, bool>) {
        return place(analytics_name_uint64_add, analytics_uint64_add, static_cast<std::uint64_t>(value));
    } else if constexpr (std::is_integral_v<T>) {
        return add_number(place, value);
    } else {
        const std::string_view text(value);
        // An empty view may point nowhere, and is no null all the same.
        return place(analytics_name_text_add, analytics_text_add, text.empty() ? "" : text.data(), text.size());
    }
}

template <typename Place, typename T>
result add_value(const Place& place, const T& value)
{
    if constexpr (is_exact<T>) {
        return add_exact(place, value.value);
    } else if constexpr (is_text<T>) {
        return with_c_text(
            value, [&](const char* text) { return place(analytics_name_string_add, analytics_string_add, text); });
    } else if constexpr (std::is_same_v<T, std::nullopt_t>) {
        return add_value(place, nullptr);
    } else if constexpr (is_optional<T>) {
        return value ? add_value(place, *value) : add_value(place, nullptr);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return add_number(place, value);
    } else if constexpr (is_duration<T>) {
        return add_duration(place, value);
    } else {
        return add_range(place, value);
    }
}

/// @}

} // namespace detail
} // namespace analytics
