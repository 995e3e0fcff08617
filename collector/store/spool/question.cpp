#include "question.h"

#include "store/clickhouse/row_binary.h"

namespace store::spool {

namespace {

// What of a place the table's index knows: only the rows that agree in it are read.
constexpr const char* g_narrow[clickhouse::g_kinds] = {"application, name, hour", "installation, batch",
                                                       "batch, first, count", "collector, number"};

// A hash of the place stands for it, some ten times faster than a set of whole ones; both sides of the comparison are
// made by the node that is asked, so it does not matter which hash a version of it computes. Two places with one hash
// hide a lack once in 2^64 pairs.
std::string text_of(Kind kind)
{
    const clickhouse::TableFacts& table = clickhouse::facts(kind);
    const std::string hash = "cityHash64(" + std::string(table.place) + ")",
                      narrow = g_narrow[static_cast<size_t>(kind)];
    return "SELECT grp FROM asked WHERE " + hash + " NOT IN (SELECT " + hash + " FROM " + table.name + " WHERE " +
           (kind == Kind::events ? "week IN (SELECT DISTINCT week FROM asked) AND " : "") + "(" + narrow +
           ") IN (SELECT DISTINCT " + narrow + " FROM asked) AND " + hash + " IN (SELECT " + hash +
           " FROM asked)) GROUP BY grp FORMAT RowBinary";
}

} // namespace

bool Question::add(Spool& spool, const Group& group, const Screen& screen)
{
    for (const BlockFacts& facts : group.blocks) {
        const Block block = spool.read(facts.id);
        const std::vector<Row> rows = block.read();
        if (rows.size() != facts.lines)
            return false;
        for (const Row& row : rows) {
            if (is_screened(screen, facts.kind, row))
                continue;
            clickhouse::RowWriter(m_places[static_cast<size_t>(facts.kind)])
                .u32(m_groups)
                .u16(row.week)
                .fixed(row.place);
            ++m_rows;
            if (facts.kind == Kind::events)
                m_days.emplace(row.day, application_of(row));
        }
    }
    ++m_groups;
    return true;
}

Answer<std::vector<bool>> Question::ask(Client& client, const clickhouse::Bounds& bounds) const
{
    std::vector<bool> lacks(m_groups);
    for (size_t at = 0; at < clickhouse::g_kinds; ++at) {
        if (m_places[at].empty())
            continue;
        const auto kind = static_cast<Kind>(at);
        const std::string structure =
            std::string("grp UInt32, week UInt16, ") + clickhouse::facts(kind).place_structure;
        auto answer = client.ask_with(text_of(kind), {"asked", structure, m_places[at]}, bounds);
        if (!answer)
            return answer.fault();
        for (clickhouse::RowReader rows(*answer); !rows.done();) {
            if (const uint32_t group = rows.u32(); group < m_groups)
                lacks[group] = true;
        }
    }
    return lacks;
}

} // namespace store::spool
