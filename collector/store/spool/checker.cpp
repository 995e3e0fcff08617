#include "checker.h"

#include "store/clickhouse/row_binary.h"

#include <algorithm>
#include <fstream>

#include <time.h>

namespace store::spool {

using namespace std::chrono;

namespace {

constexpr Seconds g_slack = 2;           // clocks are read in whole seconds, and are corrected in small steps
constexpr uint64_t g_most_rows = 200000; // of one question
constexpr seconds g_start_time(5);       // for an answer that costs a node nothing
constexpr seconds g_patience(30);        // with a replica that should have fetched by now
constexpr milliseconds g_shortest(250), g_longest(10000);

std::string boot_id()
{
    std::string id;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), id);
    return id;
}

bool has_moved(const std::vector<Seconds>& one, const std::vector<Seconds>& other)
{
    return !std::equal(one.begin(), one.end(), other.begin(), other.end(), [](Seconds before, Seconds after) {
        return before - g_slack <= after && after <= before + g_slack;
    });
}

clickhouse::Bounds bounds_of(const Parts& parts)
{
    clickhouse::Bounds bounds;
    bounds.stop = &parts.is_leaving;
    return bounds;
}

} // namespace

int64_t since_boot_ms()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

Checker::Checker(Parts& parts, uint32_t shard, Groups groups)
    : m_parts(parts), m_shard(shard), m_lane(*parts.lanes[shard]), m_boot(boot_id()), m_clients(parts.clients(shard))
{
    m_parts.unchecked[shard] += groups.size();
    for (Group& group : groups) {
        Groups& list = group.checked->boot == m_boot ? m_kept : m_shipped;
        if (&list == &m_shipped)
            group.checked.reset();
        list.push_back(std::move(group));
    }
    m_kept.sort([](const Group& one, const Group& other) { return one.checked->since < other.checked->since; });
    m_thread = std::thread([this] { work(); });
}

Checker::~Checker()
{
    m_thread.join();
}

void Checker::work()
{
    const auto pause = std::clamp(duration_cast<milliseconds>(m_parts.options.keep) / 60, g_shortest, g_longest);
    while (!m_parts.is_leaving) {
        for (Group& group : m_lane.take_shipped(pause))
            m_shipped.push_back(std::move(group));
        if (!m_parts.is_leaving && (!m_shipped.empty() || !m_kept.empty()))
            look();
    }
}

void Checker::look()
{
    const auto starts = ask_starts();
    if (!starts || !note_starts(*starts))
        return;
    while (!m_parts.is_leaving && look_at_shipped(*starts)) {
    }
    while (!m_parts.is_leaving && look_at_kept()) {
    }
}

// When the replicas were started, by their own clocks; none when one of them does not say so.
std::optional<std::vector<Seconds>> Checker::ask_starts()
{
    std::vector<Seconds> starts;
    clickhouse::Bounds bounds = bounds_of(m_parts);
    bounds.time = g_start_time;
    for (size_t replica = 0; replica < m_clients.size(); ++replica) {
        auto answer = m_clients[replica].ask("SELECT toInt64(now()) - toInt64(uptime()) FORMAT RowBinary", bounds);
        note(replica, answer ? nullptr : &answer.fault());
        if (!answer)
            return std::nullopt;
        clickhouse::RowReader row(*answer);
        starts.push_back(row.i64());
        if (!row.ok())
            return std::nullopt;
    }
    return starts;
}

// False when a replica was started since it was asked last: then all that is here goes there again.
bool Checker::note_starts(const std::vector<Seconds>& starts)
{
    bool is_moved = false;
    for (size_t replica = 0; replica < starts.size(); ++replica) {
        const std::string node = m_clients[replica].node().name();
        const Seconds before = m_parts.spool->start_of(node);
        if (before != 0 && !has_moved({before}, {starts[replica]}))
            continue;
        m_parts.spool->set_start(node, starts[replica]);
        is_moved = is_moved || before != 0;
    }
    if (!is_moved)
        return true;
    send_again(std::exchange(m_shipped, {}));
    send_again(std::exchange(m_kept, {}));
    return false;
}

Checker::Groups Checker::take_due(Groups& from, int64_t not_after, Question& question)
{
    Groups due;
    for (auto at = from.begin(); at != from.end() && question.rows() < g_most_rows;) {
        const auto next = std::next(at);
        const bool is_due = !at->checked || at->checked->since <= not_after;
        if (is_due && question.add(*m_parts.spool, *at, m_parts.screen))
            due.splice(due.end(), from, at);
        at = next;
    }
    return due;
}

std::optional<std::vector<std::vector<bool>>> Checker::ask(const Question& question)
{
    std::vector<std::vector<bool>> lacks;
    for (size_t replica = 0; replica < m_clients.size(); ++replica) {
        auto answer = question.ask(m_clients[replica], bounds_of(m_parts));
        note(replica, answer ? nullptr : &answer.fault());
        if (!answer)
            return std::nullopt;
        lacks.push_back(std::move(*answer));
    }
    return lacks;
}

bool Checker::mark(const Question& question)
{
    const auto days = question.days();
    if (!m_parts.write_marks || days.empty())
        return true;
    for (Client& client : m_clients) {
        if (m_parts.write_marks(client, days, bounds_of(m_parts)))
            return true;
    }
    return false;
}

// True when there may be more to look at.
bool Checker::look_at_shipped(const std::vector<Seconds>& starts)
{
    Question question;
    Groups due = take_due(m_shipped, 0, question);
    if (due.empty())
        return false;
    const auto lacks = ask(question);
    if (!lacks || !mark(question)) {
        m_shipped.splice(m_shipped.begin(), due);
        return false;
    }
    Groups there, lost, late;
    for (size_t i = 0; !due.empty(); ++i) {
        const Group& group = due.front();
        const bool is_late = std::any_of(lacks->begin(), lacks->end(), [i](const auto& replica) { return replica[i]; });
        const bool is_lost =
            (*lacks)[group.replica % lacks->size()][i] || (is_late && Clock::now() - group.shipped_at > g_patience);
        Groups& list = !is_late ? there : is_lost ? lost : late;
        list.splice(list.end(), due, due.begin());
    }
    keep(std::move(there), starts);
    send_again(std::move(lost));
    const bool goes_on = late.empty() && !m_shipped.empty();
    m_shipped.splice(m_shipped.end(), late); // behind the others: one that stays late holds nothing up
    return goes_on;
}

bool Checker::look_at_kept()
{
    Question question;
    Groups due =
        take_due(m_kept, since_boot_ms() - duration_cast<milliseconds>(m_parts.options.keep).count(), question);
    if (due.empty())
        return false;
    const auto lacks = ask(question);
    const auto starts = lacks ? ask_starts() : std::nullopt; // after the rows: what it says covers them
    if (!starts) {
        m_kept.splice(m_kept.begin(), due);
        return false;
    }
    Groups safe, lost;
    for (size_t i = 0; !due.empty(); ++i) {
        const bool is_lost = has_moved(due.front().checked->starts, *starts) ||
                             std::any_of(lacks->begin(), lacks->end(), [i](const auto& replica) { return replica[i]; });
        Groups& list = is_lost ? lost : safe;
        list.splice(list.end(), due, due.begin());
    }
    const bool goes_on = lost.empty();
    let_go(std::move(safe));
    send_again(std::move(lost));
    return goes_on;
}

void Checker::keep(Groups&& groups, const std::vector<Seconds>& starts)
{
    std::vector<KeptGroup> kept;
    for (Group& group : groups) {
        group.checked = Checked{m_boot, since_boot_ms(), starts};
        KeptGroup& one = kept.emplace_back();
        one.checked = *group.checked;
        for (const BlockFacts& block : group.blocks)
            one.blocks.push_back(block.id);
    }
    if (!kept.empty())
        m_parts.spool->keep(kept);
    m_kept.splice(m_kept.end(), groups);
}

void Checker::let_go(Groups&& groups)
{
    std::vector<BlockFacts> blocks;
    for (const Group& group : groups)
        blocks.insert(blocks.end(), group.blocks.begin(), group.blocks.end());
    if (blocks.empty())
        return;
    if (m_parts.spool->remove(blocks))
        m_parts.unchecked[m_shard] -= groups.size();
    else
        m_kept.splice(m_kept.end(), groups); // the disk is at fault; once more later
}

// Small groups go together this time: each costs some inserts on every replica, however few its lines are.
void Checker::send_again(Groups&& groups)
{
    while (!groups.empty()) {
        Group group = std::move(groups.front());
        groups.pop_front();
        group.checked.reset();
        while (!groups.empty() && group.lines + groups.front().lines <= m_parts.options.group_lines &&
               group.bytes + groups.front().bytes <= GroupBounds().bytes) {
            for (const BlockFacts& block : groups.front().blocks)
                group.add(block);
            groups.pop_front();
            --m_parts.unchecked[m_shard];
        }
        m_lane.add(std::move(group));
    }
}

void Checker::note(size_t replica, const Trouble* trouble)
{
    if (trouble == nullptr)
        m_parts.replicas.answered(m_shard, replica, Replicas::Task::asking);
    else if (!m_parts.is_leaving)
        m_parts.replicas.failed(m_shard, replica, Replicas::Task::asking, *trouble);
}

} // namespace store::spool
