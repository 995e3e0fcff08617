#include "rollups.h"

#include "relations.h"
#include "row_binary.h"

#include <algorithm>
#include <set>
#include <thread>
#include <tuple>

namespace store::clickhouse {

namespace {

constexpr unsigned g_random_bits = 20; // of a generation
constexpr size_t g_condition = 150000; // bytes; the engine reads questions of 256 KiB
constexpr std::chrono::seconds g_peers(20);
constexpr uint64_t g_spill = 1000000000; // bytes
constexpr int g_replaced_for = 300;      // seconds: longer than a question that began with the rollup before

struct State
{
    MarkSet marks, at_roll;
    uint64_t generation = 0; ///< 0: there is no rollup

    bool holds(Day day, uint16_t retired) const
    {
        return generation != 0 && (marks == at_roll || week_of(day * int64_t(86400)) <= retired);
    }
};

struct States
{
    std::map<Dated, State> days;
    uint16_t retired = 0; ///< the last week that was dropped
};

std::string where(const std::optional<std::string>& application, Day first, Day end)
{
    return " WHERE day>=" + std::to_string(first) + " AND day<" + std::to_string(end) +
           (application ? " AND application=" + quoted(*application) : "");
}

// Marks, rollups and dropped weeks in one question, so in one moment of the node.
Answer<States> states_of(Client& client, const std::optional<std::string>& application, Day first, Day end,
                         const Bounds& bounds)
{
    const std::string days = where(application, first, end) + " GROUP BY day, application";
    auto answer = client.ask(
        "SELECT toUInt8(0), day, application, sum(n), sum(mark), toUInt64(0) FROM marks" + days +
            " UNION ALL SELECT toUInt8(1), day, application, argMax(n, generation), argMax(mark, generation), "
            "max(generation) FROM roll_days" +
            days +
            " UNION ALL SELECT toUInt8(2), toInt32(0), '', toUInt64(max(week)), toUInt64(0), toUInt64(0) FROM retired "
            "FORMAT RowBinary",
        bounds);
    if (!answer)
        return answer.fault();
    States states;
    for (RowReader rows(*answer); !rows.done();) {
        const uint8_t what = rows.u8();
        const Day day = rows.i32();
        const std::string of(rows.text());
        const MarkSet marks{rows.u64(), rows.u64()};
        const uint64_t generation = rows.u64();
        if (what == 2) {
            states.retired = static_cast<uint16_t>(marks.number);
            continue;
        }
        State& state = states.days[{day, of}];
        (what == 0 ? state.marks : state.at_roll) = marks;
        state.generation = std::max(state.generation, generation);
    }
    return states;
}

// One list for each application: "(application='a' AND (day, generation) IN ((1,2),(3,4)))", joined by OR.
class Picked
{
public:
    void add(const Dated& day, uint64_t generation)
    {
        std::string& list = m_lists[day.second];
        m_bytes += list.empty() ? day.second.size() + 60 : 0;
        list += (list.empty() ? "(" : ",(") + std::to_string(day.first) + "," + std::to_string(generation) + ")";
        m_bytes += 30;
    }
    bool is_full() const { return m_bytes > g_condition; }
    bool empty() const { return m_lists.empty(); }
    std::string text() const
    {
        std::string text;
        for (const auto& [application, list] : m_lists)
            text += (text.empty() ? "((" : " OR (") + std::string("application=") + quoted(application) +
                    " AND (day, generation) IN (" + list + "))";
        return text.empty() ? "0" : text + ")";
    }

private:
    std::map<std::string, std::string> m_lists;
    size_t m_bytes = 0;
};

// How many rows of a rollup a node has, table by table.
using Rows = std::array<uint64_t, std::size(g_rolls)>;

Answer<Rows> rows_of(Client& client, const Dated& day, uint64_t generation, const Bounds& bounds)
{
    Rows counts{};
    for (size_t i = 0; i < counts.size(); ++i) {
        auto answer = client.ask("SELECT count() FROM " + std::string(table_of(g_rolls[i])) +
                                     where(day.second, day.first, day.first + 1) +
                                     " AND generation=" + std::to_string(generation) + " FORMAT RowBinary",
                                 bounds);
        if (!answer)
            return answer.fault();
        counts[i] = RowReader(*answer).u64();
    }
    return counts;
}

// A rollup that one replica told of before its rows came there would show a day without them.
void wait_for_peers(std::span<Client> peers, const Dated& day, uint64_t generation, const Rows& rows,
                    const Bounds& bounds)
{
    const auto until = std::min(bounds.until, Clock::now() + g_peers);
    for (Client& peer : peers) {
        for (;;) {
            auto there = rows_of(peer, day, generation, {std::chrono::seconds(2), 0, until, bounds.stop});
            if (!there || *there == rows || Clock::now() >= until)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
}

Answer<Done> tell(Client& client, const Dated& day, uint64_t generation, const MarkSet& marks, const Rows& counts,
                  const Bounds& bounds)
{
    std::string row;
    RowWriter writer(row);
    writer.i32(day.first).text(day.second).u64(generation).u64(marks.number).u64(marks.sum);
    for (uint64_t count : counts)
        writer.u64(count);
    return client.insert("roll_days", "day, application, generation, n, mark, active, names, values, facts", row,
                         bounds);
}

// A rollup as roll_days has it.
struct Told
{
    uint64_t generation = 0;
    bool is_settled = false; ///< it was made some minutes ago
    Rows rows{};
};

Answer<std::map<Dated, Told>> all_told(Client& client, const Bounds& bounds)
{
    auto answer = client.ask("SELECT day, application, max(generation), argMax(made, generation) < now() - " +
                                 std::to_string(g_replaced_for) +
                                 ", argMax(active, generation), argMax(names, generation), argMax(values, generation), "
                                 "argMax(facts, generation) FROM roll_days GROUP BY day, application FORMAT RowBinary",
                             bounds);
    if (!answer)
        return answer.fault();
    std::map<Dated, Told> told;
    for (RowReader rows(*answer); !rows.done();) {
        const Day day = rows.i32();
        Told& one = told[{day, std::string(rows.text())}];
        one.generation = rows.u64();
        one.is_settled = rows.u8() != 0;
        for (uint64_t& count : one.rows)
            count = rows.u64();
    }
    return told;
}

// The rows of one rollup table against what was told: those whose count is wrong, and what may go.
Answer<Done> tidy_table(Client& client, size_t table, const std::map<Dated, Told>& told, std::set<Dated>& broken,
                        const Bounds& bounds)
{
    const std::string name = table_of(g_rolls[table]);
    auto answer = client.ask("SELECT day, application, generation, count() FROM " + name +
                                 " GROUP BY day, application, generation FORMAT RowBinary",
                             bounds);
    if (!answer)
        return answer.fault();
    std::map<Dated, uint64_t> found;
    Picked replaced;
    for (RowReader rows(*answer); !rows.done();) {
        const Day of = rows.i32();
        const Dated day{of, std::string(rows.text())};
        const uint64_t generation = rows.u64(), count = rows.u64();
        const auto newest = told.find(day);
        if (newest == told.end())
            continue;
        if (generation == newest->second.generation)
            found[day] = count;
        else if (generation < newest->second.generation && newest->second.is_settled && !replaced.is_full())
            replaced.add(day, generation);
    }
    for (const auto& [day, one] : told) {
        if (found[day] != one.rows[table])
            broken.insert(day);
    }
    return replaced.empty() ? Answer<Done>(Done())
                            : client.run("ALTER TABLE " + name + " DELETE WHERE " + replaced.text(), bounds);
}

} // namespace

Closed closed_days(Client& client, const std::optional<std::string>& application, Day first, Day end)
{
    Closed closed;
    auto states = states_of(client, application, first, end, {});
    if (!states)
        return closed;
    std::set<Day> open;
    for (const auto& [day, state] : states->days) {
        if (!state.holds(day.first, states->retired))
            open.insert(day.first);
    }
    Picked picked;
    for (const auto& [day, state] : states->days) {
        if (open.count(day.first) != 0)
            continue;
        if (picked.is_full() && (closed.days.empty() || closed.days.back() != day.first))
            break;
        picked.add(day, state.generation);
        if (closed.days.empty() || closed.days.back() != day.first)
            closed.days.push_back(day.first);
    }
    closed.rolls = picked.text();
    return closed;
}

Answer<std::vector<Dated>> days_to_roll(Client& client, Day first, Day end, const Bounds& bounds)
{
    auto states = states_of(client, std::nullopt, first, end, bounds);
    if (!states)
        return states.fault();
    std::vector<Dated> days;
    for (const auto& [day, state] : states->days) {
        if (!state.holds(day.first, states->retired) && week_of(day.first * int64_t(86400)) > states->retired)
            days.push_back(day);
    }
    std::reverse(days.begin(), days.end());
    return days;
}

Answer<Done> make_rollup(Client& client, std::span<Client> peers, const Dated& day, const Bounds& bounds)
{
    auto states = states_of(client, day.second, day.first, day.first + 1, bounds);
    if (!states)
        return states.fault();
    const State before = states->days[day];
    const uint64_t generation = (((before.generation >> g_random_bits) + 1) << g_random_bits) |
                                (random_bits() & ((uint64_t(1) << g_random_bits) - 1));
    Bounds patient = bounds;
    patient.spill = g_spill; // a large day takes longer, but not the node's memory
    for (const Roll roll : g_rolls) {
        auto made = client.run("INSERT INTO " + std::string(table_of(roll)) + " (" + columns_of(roll) + ") " +
                                   roll_select(roll, day.first, day.second, generation),
                               patient);
        if (!made)
            return made;
    }
    auto rows = rows_of(client, day, generation, bounds);
    if (!rows)
        return rows.fault();
    wait_for_peers(peers, day, generation, *rows, bounds);
    return tell(client, day, generation, before.marks, *rows, bounds);
}

Answer<Done> tidy_rollups(Client& client, const Bounds& bounds)
{
    auto told = all_told(client, bounds);
    if (!told)
        return told.fault();
    std::set<Dated> broken;
    for (size_t table = 0; table < std::size(g_rolls); ++table) {
        if (auto done = tidy_table(client, table, *told, broken, bounds); !done)
            return done;
    }
    return write_marks(client, std::vector<Dated>(broken.begin(), broken.end()), bounds);
}

} // namespace store::clickhouse
