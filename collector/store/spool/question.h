// Which rows of some groups a replica lacks, asked by the rows' places.
#pragma once

#include "load.h"

#include <set>

namespace store::spool {

/// The places of some groups' rows, and the question about them. One thread at a time.
class Question
{
public:
    /// Adds a group's rows, less what the screen keeps out. @return false when the spool's file does not give all
    bool add(Spool& spool, const Group& group, const Screen& screen);
    /// Which of the groups, in the order of add(), lack a row in this node.
    Answer<std::vector<bool>> ask(Client& client, const clickhouse::Bounds& bounds) const;

    uint64_t rows() const { return m_rows; }
    /// The events' days with their applications.
    std::vector<std::pair<clickhouse::Day, std::string>> days() const { return {m_days.begin(), m_days.end()}; }

private:
    uint32_t m_groups = 0;
    uint64_t m_rows = 0;
    std::array<std::string, clickhouse::g_kinds> m_places; ///< RowBinary: group, week, place
    std::set<std::pair<clickhouse::Day, std::string>> m_days;
};

} // namespace store::spool
