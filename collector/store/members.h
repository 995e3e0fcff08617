// Which members of an event can be counted, and as what: one rule for the intake, which hands them to a store, and for
// questions that read them again from stored events.
#pragma once

#include "upload.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <simdjson.h>

namespace store {

/// Memory for the digits of a number.
using Digits = char[32];

template <class Number>
std::string_view digits_of(Number number, Digits& digits)
{
    return {digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, number).ptr - digits)};
}

/// The shortest form of a number. That of most is a few decimals, which need no search.
inline std::string_view digits_of(double number, Digits& digits)
{
    for (int decimals = 1, power = 10; decimals <= 3; ++decimals, power *= 10) {
        double whole = number * power;
        if (!(std::abs(whole) < 1e15) || whole != std::trunc(whole) || whole / power != number)
            continue;
        if (decimals == 1 && number == std::trunc(number))
            break; // a whole one may be shorter with an exponent
        return {digits,
                static_cast<size_t>(
                    std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed, decimals).ptr -
                    digits)};
    }
    return {digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, number).ptr - digits)};
}

/// A text, number, boolean or null; false for an object or an array. The text lives as long as the parser's document
/// and `digits`.
inline bool scalar(simdjson::dom::element json, Digits& digits, Value& value)
{
    using simdjson::dom::element_type;
    switch (json.type()) {
    case element_type::STRING:
        value = {ValueType::text, json.get_string().value_unsafe()};
        return true;
    case element_type::INT64:
        value = {ValueType::number, digits_of(json.get_int64().value_unsafe(), digits)};
        return true;
    case element_type::UINT64:
        value = {ValueType::number, digits_of(json.get_uint64().value_unsafe(), digits)};
        return true;
    case element_type::DOUBLE:
        value = {ValueType::number, digits_of(json.get_double().value_unsafe(), digits)};
        return true;
    case element_type::BOOL:
        value = {ValueType::boolean, json.get_bool().value_unsafe() ? "true" : "false"};
        return true;
    case element_type::NULL_VALUE:
        value = {ValueType::null, "null"};
        return true;
    default:
        return false;
    }
}

/// Calls `use(key, value)` for the first `g_event_properties` properties of an event and gives the number of the
/// others.
template <class Use>
uint32_t for_each_property(simdjson::dom::object members, Use&& use)
{
    std::string_view keys[g_event_properties];
    size_t count = 0;
    uint32_t others = 0;
    Digits digits;
    for (auto [key, json] : members) {
        Value value;
        if (!scalar(json, digits, value) || std::find(keys, keys + count, key) != keys + count)
            continue;
        if (count == g_event_properties) {
            ++others;
            continue;
        }
        keys[count++] = key;
        use(key, value);
    }
    return others;
}

/// Tells the events that Query::fact means; all, when it is not set. One thread at a time.
class FactFilter
{
public:
    explicit FactFilter(std::optional<std::pair<std::string, std::string>> fact) : m_fact(std::move(fact))
    {
        if (m_fact)
            m_number = number_of(m_fact->second);
    }

    explicit operator bool() const { return m_fact.has_value(); }
    bool is(const Value& value) const
    {
        return value.text == m_fact->second ||
               (m_number && value.type == ValueType::number && number_of(value.text) == m_number);
    }
    /// Whether stored members are those of such an event.
    bool admits(std::string_view members)
    {
        simdjson::dom::object object;
        if (!m_fact)
            return true;
        if (m_parser.parse(members.data(), members.size()).get_object().get(object))
            return false;
        bool found = false;
        for_each_property(object, [&](std::string_view key, const Value& value) {
            found = found || (key == m_fact->first && is(value));
        });
        return found;
    }

private:
    static std::optional<double> number_of(std::string_view text)
    {
        double number = 0;
        const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
        return read.ec == std::errc() && read.ptr == text.data() + text.size() ? std::optional(number) : std::nullopt;
    }

    std::optional<std::pair<std::string, std::string>> m_fact;
    std::optional<double> m_number;
    simdjson::dom::parser m_parser;
};

} // namespace store
