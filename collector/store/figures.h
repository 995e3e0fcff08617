// What every store makes of its figures alike: the order of tables, ranks, percentiles and histograms.
#pragma once

#include "answers.h"

#include <algorithm>
#include <map>
#include <set>
#include <span>
#include <tuple>

namespace store {

/// In place of what is past a limit.
constexpr std::string_view g_other = "(other)";

/// Key, type and text of a property's value; the type is g_other_type for what is past a limit.
using PropertyKey = std::tuple<std::string, int, std::string>;
constexpr int g_other_type = -1;

/// A value as answers show it.
OwnedValue owned(int type, const std::string& text);

/// Sorts by events, most first, then by what `bytes_of(row)` gives, and cuts to the limit.
template <class Row, class BytesOf>
Table<Row> sorted_table(std::vector<Row> rows, size_t limit, BytesOf&& bytes_of)
{
    std::sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) {
        return a.events != b.events ? a.events > b.events : bytes_of(a) < bytes_of(b);
    });
    Table<Row> table;
    table.total = rows.size();
    if (rows.size() > limit)
        rows.resize(limit);
    table.rows = std::move(rows);
    return table;
}

/// Percentiles, sum and histogram of values in any order.
Numbers numbers_of(std::vector<double> values);

/// How often each value of a property was there, by the start of a step.
class Course
{
public:
    void add(Seconds at, const PropertyKey& value, uint64_t events);
    /// The `limit` most frequent values of all, step by step.
    std::vector<PropertyPoint> most_frequent(size_t limit) const;

private:
    std::map<Seconds, std::map<PropertyKey, uint64_t>> m_points;
    std::map<PropertyKey, uint64_t> m_sums;
};

/// The Monday that the week of a day begins with, as a number of days since 1970.
inline int64_t monday_of(int64_t day)
{
    return day - ((day + 3) % 7 + 7) % 7; // 1970-01-01 was a Thursday
}

/// The years that a line's time can have: 0000-01-01 to 10000-01-01.
constexpr Seconds g_first_second = -62167219200;
constexpr Seconds g_end_second = 253402300800;

} // namespace store
