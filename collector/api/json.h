/// @file
/// Small pieces of JSON text. What is written here is valid UTF-8 already: the intake sees to that.
#pragma once

#include "store/answers.h"

#include <string>
#include <string_view>

namespace api {

/// A string with its quotes; control bytes as \u00xx (RFC 8259, 7).
std::string quoted(std::string_view text);
/// A string, or null.
std::string quoted_or_null(const std::optional<std::string>& text);
/// A counted value as what it was: a string, a number, true, false or null.
std::string value_of(const store::OwnedValue& value);
/// The shortest text that reads back as the same number; one without a decimal point is an integer. NaN is null.
std::string number(double value);
/// "2026-11-21T05:00:00Z".
std::string iso_time(store::Seconds seconds);
/// "2026-11-21 05:00:00", as event lines have it.
std::string line_time(store::Seconds seconds);
/// The reverse, of "YYYY-MM-DD" or "YYYY-MM-DDThh:mm:ssZ"; false for anything else.
bool read_time(std::string_view text, store::Seconds& seconds);

/// An object or array under construction: `Json("{").add("events", 3).end('}')`.
class Json
{
public:
    explicit Json(char opening) : m_text(1, opening) {}
    Json& raw(std::string_view name, std::string_view json);
    Json& text(std::string_view name, std::string_view value) { return raw(name, quoted(value)); }
    Json& count(std::string_view name, uint64_t value) { return raw(name, std::to_string(value)); }
    /// An element of an array.
    Json& element(std::string_view json);
    std::string end(char closing);

private:
    void separate();
    std::string m_text;
};

} // namespace api
