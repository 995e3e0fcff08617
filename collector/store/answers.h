// The questions that a store answers, as words and rows. No SQL, no JSON: whoever asks gives the rows their shape.
#pragma once

#include "upload.h"

#include <limits>
#include <utility>

namespace store {

/// Which events are meant. A filter that is set matches whole texts, byte by byte; several must all match.
struct Query
{
    /// By `logged_at`: from included, to not. The store takes them as they are; the API rounds them to full hours.
    Seconds from = std::numeric_limits<Seconds>::min();
    Seconds to = std::numeric_limits<Seconds>::max();
    std::optional<std::string> application, version, name, installation;
    /// A key and a value's text, as facts have them: events that carry this property with this value. Whatever the
    /// value's type is; numbers that are equal match however they are written.
    std::optional<std::pair<std::string, std::string>> fact;
    /// The most rows of a table.
    size_t limit = 100;
};

/// Rejects and dropped lines are counted by their time of receipt. They belong to no application, version or name, so
/// of the filters only `installation` (the sender's) applies to them.
struct Summary
{
    uint64_t events = 0;
    uint64_t installations = 0;     ///< different ones that logged in the period
    uint64_t new_installations = 0; ///< those of them whose first event of all (of the application, when one is
                                    ///< filtered) lies in the period
    uint64_t versions = 0;          ///< different pairs of application and version
    uint64_t names = 0;             ///< different names; the null name is one
    uint64_t rejects = 0;
    uint64_t dropped = 0;
};

enum class Step
{
    hour,
    day
};

struct Point
{
    Seconds at = 0; ///< where the hour or the UTC day begins
    uint64_t events = 0, installations = 0, rejects = 0, dropped = 0;
    uint64_t new_installations = 0; ///< those of the step whose first event lies in it
};

struct NameRow
{
    std::optional<std::string> name; ///< none: the null name
    uint64_t events = 0, installations = 0;
};

struct VersionRow
{
    std::string application, version;
    uint64_t events = 0, installations = 0;
};

struct OwnedValue
{
    ValueType type = ValueType::null;
    std::string text;
    bool other = false; ///< stands for all values past the limit of different ones; `text` is "(other)"
};

struct FactRow
{
    std::string fact;
    OwnedValue value;
    uint64_t events = 0, installations = 0;
};

struct PropertyRow
{
    std::string key;
    OwnedValue value;
    uint64_t events = 0;
};

/// The numbers that one property of one name had. Percentile p of n values is value number ceil(p n) in their order.
struct Numbers
{
    uint64_t count = 0;
    double min = 0, median = 0, percentile_95 = 0, max = 0, sum = 0;
    /// How many fell into each of up to 20 equal parts from min to max; the last one includes max.
    std::vector<uint64_t> histogram;
};

struct PropertyPoint
{
    Seconds at = 0; ///< where the hour or day begins
    OwnedValue value;
    uint64_t events = 0;
};

struct InstallationRow
{
    std::string installation, application;
    std::string version; ///< of its latest event
    Seconds first_seen = 0, last_seen = 0;
    uint64_t events = 0; ///< in the period
};

/// Installations by the week (Monday to Sunday, UTC) of their first event.
struct RetentionRow
{
    Seconds week = 0;
    uint64_t installations = 0;
    std::vector<uint64_t> active; ///< [i]: how many of them logged i weeks later; [0] those of the first week itself
};

struct RejectRow
{
    Milliseconds received_at = 0;
    std::string installation, reason, line;
};

/// One event as export, timeline and the live stream show it.
struct EventRow
{
    std::string installation, application, version;
    std::optional<std::string> name;
    Seconds logged_at = 0;
    Milliseconds received_at = 0;
    std::optional<BatchId> batch;
    uint32_t line = 0;
    std::string members; ///< compact JSON object
};

/// Rows of a table, most events first (ties by bytes), and how many there are without the limit.
template <class Row>
struct Table
{
    uint64_t total = 0;
    std::vector<Row> rows;
};

/// A place in the order of receipt, as one store tells it: to be kept and handed back only. Empty: before the first
/// event.
using Cursor = std::string;

struct Receipts
{
    std::vector<EventRow> rows; ///< in order of receipt
    Cursor next;                ///< where to go on
    bool at_end = false;        ///< there was nothing more when it was read
};

/// How the store itself is.
struct Health
{
    uint64_t events = 0, installations = 0, rejects = 0, dropped = 0, uploads = 0;
    uint64_t count_differs = 0; ///< uploads whose `n` was not the number of their lines
    uint64_t bytes = 0;         ///< on disk, the write-ahead log included
    uint64_t log_bytes = 0;     ///< the write-ahead log alone
    Milliseconds last_received_at = 0;
    std::optional<Seconds> oldest_event; ///< the earliest `logged_at` among raw events
    int schema = 0;
};

} // namespace store
