// One upload as the intake hands it to a store: its text, the lines in it, and the events and rejects among them.
//
// Everything is a slice of memory that the upload itself owns, so an upload can be moved from thread to thread (its
// slices stay valid) but not copied. One thread at a time.
#pragma once

#include "chain.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace store {

/// Whole seconds since 1970-01-01T00:00:00Z, by the calendar: an event's own time.
using Seconds = int64_t;
/// Milliseconds since the same moment: the time of receipt.
using Milliseconds = int64_t;
/// A batch's 128 bits, in the order in which its 32 digits are written.
using BatchId = std::array<unsigned char, 16>;

/// What kind of JSON value a text stands for. Kept apart so that the text "1" and the number 1 stay two values.
enum class ValueType : uint8_t
{
    text,
    number,
    boolean,
    null
};

/// A value that can be counted. `text` of a number is its shortest JSON form, of a boolean `true` or `false`, of null
/// `null`, and of a text the text itself, unescaped, in valid UTF-8.
struct Value
{
    ValueType type = ValueType::null;
    std::string_view text;
};

/// A top-level member of an event that is no object and no array; of two equal keys only the first.
struct Property
{
    std::string_view key; ///< unescaped, valid UTF-8
    Value value;
    bool is_fact = false; ///< one of the names that the library itself fills in (os_name, cpu_name ...)
};

/// A line that is an event. All texts are unescaped and valid UTF-8.
struct Event
{
    std::string_view application, version, installation;
    std::optional<std::string_view> name; ///< a name by number is its digits; none is a null name
    Seconds logged_at = 0;
    std::string_view members;      ///< member 7 as compact JSON that any parser takes; nan and inf are null
    uint32_t first_property = 0;   ///< its properties in Upload::properties
    uint32_t properties = 0;       ///< at most `g_event_properties`
    uint32_t other_properties = 0; ///< further ones, which are only counted
};

/// The most properties of one event that are counted by key and value.
inline constexpr uint32_t g_event_properties = 64;

/// A line that is no event.
struct Reject
{
    std::string_view reason; ///< one short sentence
    std::string_view text;   ///< how the line begins, in valid UTF-8; at most `g_reject_bytes`
};

/// The most bytes of a rejected line that are kept.
inline constexpr size_t g_reject_bytes = 4096;

/// A non-empty line of the text as sent, without its line feed.
struct Line
{
    std::string_view text;
    ChainKey key = 0;      ///< the chained hash over the text's non-empty lines up to this one, seeded with `g`
    bool is_event = false; ///< else a reject
    uint32_t index = 0;    ///< of Upload::events or Upload::rejects
};

/// A part of a text without a batch that is too long for one upload: whole lines, which come part by part in their
/// order, behind what is known of the text already.
struct Part
{
    TextEnd end;                   ///< of the text up to the part's last line
    std::optional<TextEnd> latest; ///< the sender's latest end when the part was made (Writing::ends)
    bool goes_on = false;          ///< `latest` is the end of the part before, and no end of a text any more
};

struct Upload
{
    /// The sender: `g` of the form, in valid UTF-8. It rules repetition and names the installation of rejects.
    std::string_view sender;
    Milliseconds received_at = 0;

    /// Line i of `lines` is line `first_line` + i of the batch, or of the file without one: a whole one, unless `part`
    /// is set.
    std::optional<BatchId> batch;
    std::optional<Part> part;
    uint32_t first_line = 0;
    /// Lines of the batch from `first_line` on that the host has thrown away; 0 when there are lines.
    uint32_t dropped = 0;
    /// The form's `n` was there and is not the number of lines.
    bool count_differs = false;

    std::vector<Line> lines; ///< the non-empty ones, in order
    std::vector<Event> events;
    std::vector<Reject> rejects;
    std::vector<Property> properties;

    /// Copies `text` into memory of this upload.
    std::string_view keep(std::string_view text);
    /// Takes a text over, such as the decoded form, and gives the place where it stays.
    std::string& hold(std::string text);
    /// About how much memory it takes, in bytes: what queues and budgets count.
    size_t bytes() const;

    Upload();
    Upload(Upload&&) noexcept;
    Upload& operator=(Upload&&) noexcept;
    ~Upload();

private:
    struct Memory;
    std::unique_ptr<Memory> m_spMemory;
};

} // namespace store
