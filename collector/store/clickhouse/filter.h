// Which rows a query means, as conditions of the engine's SQL.
#pragma once

#include "client.h"
#include "rows.h"

namespace store::clickhouse {

/// The days of a period that rollups tell of, on one node.
struct Closed
{
    std::vector<Day> days; ///< in order; those that rollups know wholly, for the filtered application or for all
    std::string rolls;     ///< a condition over (day, application, generation) that picks their rows of the rollups
};

class Filter
{
public:
    /// @param forgotten  a condition that leaves out installations, " AND installation NOT IN (...)"; may be empty
    Filter(const Query& query, Closed closed, std::string forgotten);

    /// The rows of `events` that are meant.
    std::string rows() const { return rows_of(false); }
    /// Those of them that lie on no day the rollups tell of.
    std::string open_rows() const { return rows_of(true); }
    /// The rows of a rollup; none: it tells nothing of this query. Of rollups without installations the forgotten ones
    /// are not taken: counts may stay.
    std::optional<std::string> rolls(bool has_installation) const;

    bool has_name() const { return m_query.name.has_value(); }
    /// Of `installed`, which knows application and installation alone.
    std::string installed() const { return "1" + m_application + m_installation; }
    /// Whether whatever `installed` knows of an installation is what the query means.
    bool is_of_all_events() const { return !m_query.version && !m_query.name && !m_query.fact; }
    /// Of tables by sender; without a time.
    std::string sender() const { return "1" + m_installation; }

    /// The period, within the years that a line's time can have.
    Seconds from, to;
    /// The whole days in it, whatever rollups there are.
    static std::pair<Day, Day> whole_days(const Query& query);
    /// " AND logged>=... AND ..." for a narrower period in addition.
    static std::string between(Seconds from, Seconds to);

private:
    std::string rows_of(bool only_open) const;

    const Query m_query;
    const Closed m_closed;
    std::string m_columns, m_row_columns, m_application, m_installation;
};

/// The first event of each installation, of the filtered application or of all, that lies in the query's period: a
/// SELECT of installation, seen.
std::string fresh_select(const Filter& filter);

} // namespace store::clickhouse
