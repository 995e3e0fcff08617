#include "inserting.h"

#include <algorithm>

namespace store::spool {

namespace {

constexpr size_t g_most_weeks = 50;
constexpr unsigned g_most_refusals = 64; // without a line that is taken: then it is not the lines
constexpr size_t g_few_lines = 16;

// Numbers that speak of the node, the table or the login. All others are taken to be about the rows.
bool is_of_node(const Trouble& trouble)
{
    static constexpr int codes[] = {
        16,  20,  60,  74,  75,  76,  81,  82,  115, 158, 159, 160, 164, 173,  192,  193,
        194, 195, 201, 202, 203, 209, 210, 218, 225, 236, 241, 242, 243, 244,  252,  254,
        279, 285, 286, 289, 305, 319, 373, 394, 425, 439, 497, 516, 999, 1000, 1001, 1002,
    };
    return trouble.kind != Trouble::Kind::code ||
           std::find(std::begin(codes), std::end(codes), trouble.code) != std::end(codes);
}

} // namespace

// A table's part of one try.
struct Inserting::Table
{
    Kind kind;
    bool is_taking = false; ///< some line was taken
    unsigned refusals = 0;
    std::vector<Refused> refused;
};

Inserting::Inserting(Load& load, size_t most_lines, Patience patience, const std::atomic<bool>& stop)
    : m_load(load), m_most_lines(most_lines), m_patience(patience), m_stop(stop)
{
    // By weeks only when they are many: a part of the table each, so an insert of few is cheaper by far.
    auto& events = m_load.lines[static_cast<size_t>(Kind::events)];
    if (next_part(events).size() != events.size())
        std::stable_sort(events.begin(), events.end(),
                         [](const auto& one, const auto& other) { return one.row.week < other.row.week; });
}

std::optional<Trouble> Inserting::put(Client& client, std::chrono::milliseconds wait)
{
    m_wait = wait;
    m_is_vain = false;
    for (size_t kind = 0; kind < clickhouse::g_kinds; ++kind) {
        if (auto trouble = put_table(client, static_cast<Kind>(kind)))
            return trouble;
    }
    return std::nullopt;
}

std::optional<Trouble> Inserting::put_table(Client& client, Kind kind)
{
    const auto at = static_cast<size_t>(kind);
    for (Lines lines = m_load.lines[at]; m_done[at] < lines.size();) {
        const Lines part = next_part(lines.subspan(m_done[at]));
        Table table{kind, false, 0, {}};
        if (auto trouble = halve(client, table, part))
            return trouble;
        // One line that is refused alone tells nothing: it may be the table. Time and other lines will tell.
        const bool gives_up =
            m_patience == Patience::none || (m_patience == Patience::for_many && table.refused.size() <= g_few_lines);
        m_is_vain = !table.is_taking && !table.refused.empty();
        if (m_is_vain && !gives_up)
            return table.refused.front().trouble;
        m_refused.insert(m_refused.end(), table.refused.begin(), table.refused.end());
        m_done[at] += part.size();
    }
    return std::nullopt;
}

Inserting::Lines Inserting::next_part(Lines rest) const
{
    std::vector<uint16_t> weeks;
    size_t count = 0;
    for (; count < std::min(rest.size(), m_most_lines); ++count) {
        const uint16_t week = rest[count].row.week;
        if (!weeks.empty() && weeks.back() == week)
            continue;
        if (std::find(weeks.begin(), weeks.end(), week) == weeks.end()) {
            if (weeks.size() == g_most_weeks)
                break;
            weeks.push_back(week);
        }
    }
    return rest.first(count);
}

std::optional<Trouble> Inserting::halve(Client& client, Table& table, Lines lines)
{
    auto inserted = insert(client, table.kind, lines);
    if (inserted) {
        table.is_taking = true;
        return std::nullopt;
    }
    const Trouble& trouble = inserted.fault();
    if (is_of_node(trouble))
        return trouble;
    if (m_patience != Patience::none && !table.is_taking && ++table.refusals > g_most_refusals) {
        m_is_vain = true;
        return trouble;
    }
    if (lines.size() == 1) {
        const auto line = static_cast<size_t>(lines.data() - m_load.lines[static_cast<size_t>(table.kind)].data());
        table.refused.push_back({table.kind, line, trouble});
        return std::nullopt;
    }
    const size_t half = lines.size() / 2;
    if (auto first = halve(client, table, lines.first(half)))
        return first;
    return halve(client, table, lines.subspan(half));
}

Answer<Done> Inserting::insert(Client& client, Kind kind, Lines lines) const
{
    size_t bytes = 0;
    for (const Load::Line& line : lines)
        bytes += line.row.bytes.size();
    std::string rows;
    rows.reserve(bytes);
    for (const Load::Line& line : lines)
        rows += line.row.bytes;
    clickhouse::Bounds bounds;
    bounds.time = m_wait;
    bounds.stop = &m_stop;
    const clickhouse::TableFacts& table = clickhouse::facts(kind);
    return client.insert(table.name, table.columns, rows, bounds);
}

} // namespace store::spool
