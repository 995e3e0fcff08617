// Reads lines of the event log file, exactly as the library writes them.
//
// An event's text is valid here even where JSON readers refuse it: raw control bytes in a text, bytes that are no
// UTF-8, and numbers that are not finite.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace wire {

/// The seven elements of a line, as they stand in it: texts with their quotes and escapes.
struct Line
{
    std::string_view version, time, application, application_version, unique_id, name, event;
};

/// Where a text leaves the format.
struct Fault
{
    size_t column; ///< 1 for the first byte of the line
    std::string what;
};

/// Reads one line, without its line feed. The slices of `line` point into `text`.
std::optional<Fault> read_line(std::string_view text, Line& line);

/// The text that a quoted, escaped text stands for; anything else (a number, null) as it is.
std::string unquoted(std::string_view text);
/// Fit for a terminal: control bytes and broken UTF-8 as "\x01", everything else as it is.
std::string printable(std::string_view text);
/// The same value for strict JSON readers: control bytes escaped, broken UTF-8 as U+FFFD, numbers that are not finite
/// as texts ("nan").
std::string to_json(std::string_view text);

} // namespace wire
