#include "upkeep.h"

#include "rollups.h"
#include "row_binary.h"

#include <algorithm>
#include <list>

namespace store::clickhouse {

namespace {

using namespace std::chrono_literals;

constexpr auto g_round = 10s;
constexpr auto g_tidy = 1h;
constexpr auto g_repeat = 60s; // deletions of the forgotten
constexpr std::chrono::milliseconds g_rollup = 10min;
constexpr Seconds g_closing = 1800;  // after a day's end
constexpr Seconds g_start_slack = 2; // now() - uptime() is no exact moment

} // namespace

/// What is known of a shard from round to round.
struct Upkeep::Chores
{
    size_t number;
    std::vector<Client> clients;
    Lease lease;
    std::map<std::string, Seconds> starts; ///< by node
    Clock::time_point next_tidy, next_repeat;
};

Answer<Day> last_closed_day(Client& client, const Bounds& bounds)
{
    auto answer = client.ask("SELECT toInt64(toUnixTimestamp(now())) FORMAT RowBinary", bounds);
    if (!answer)
        return answer.fault();
    const Seconds own =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    return day_of(std::min(own, RowReader(*answer).i64()) - g_closing) - 1;
}

Result<uint64_t> make_rollups(const Layout& layout, Day first, Day end,
                              const std::function<void(size_t shard, const Dated& day)>& say)
{
    uint64_t count = 0;
    const Bounds bounds{g_rollup};
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        std::vector<Client> clients = clients_of(layout, shard);
        auto made = with_any(clients, [&](Client& client) -> Answer<Done> {
            auto last = last_closed_day(client, bounds);
            if (!last)
                return last.fault();
            auto days = days_to_roll(client, first, std::min(end, *last + 1), bounds);
            if (!days)
                return days.fault();
            for (const Dated& day : *days) {
                say(shard, day);
                if (auto done = make_rollup(client, clients, day, bounds); !done)
                    return done;
                ++count;
            }
            return Done();
        });
        if (!made)
            return fault_of(made.fault());
    }
    return count;
}

Upkeep::Upkeep(std::shared_ptr<const Layout> layout) : m_layout(std::move(layout))
{
    m_rounds.begin([this] { work(); });
}

Result<Progress> Upkeep::retain(const Retention& retention)
{
    std::lock_guard hold(m_lock);
    m_retention = retention;
    return Progress{0, 0, true};
}

std::string Upkeep::trouble() const
{
    std::lock_guard hold(m_lock);
    return m_trouble;
}

// Late rows make rollups due again and again: a round that took long is followed by a long rest.
void Upkeep::work()
{
    std::list<Chores> shards;
    for (size_t i = 0; i < m_layout->shards.size(); ++i)
        shards.push_back({i, clients_of(*m_layout, i), Lease("shard " + std::to_string(i + 1)), {}, {}, {}});
    Clock::duration took{};
    while (m_rounds.wait(std::max<Clock::duration>(g_round, 3 * took))) {
        const auto start = Clock::now();
        std::string trouble;
        for (Chores& shard : shards) {
            if (auto done = tend(shard); !done)
                trouble = done.fault().text;
        }
        took = Clock::now() - start;
        std::lock_guard hold(m_lock);
        m_trouble = trouble;
    }
}

Answer<Done> Upkeep::tend(Chores& shard)
{
    Answer<Done> done = Done();
    for (Client& client : shard.clients) {
        auto is_mine = shard.lease.take(client, m_rounds.bounds(5s));
        if (!is_mine) {
            done = is_mine.fault();
            continue; // the other replica may
        }
        if (!*is_mine)
            return Done();
        done = look_at_starts(shard, client);
        if (done)
            done = roll(shard, client);
        if (done)
            done = keep(shard);
        shard.lease.release(client, m_rounds.bounds(5s));
        return done;
    }
    return done;
}

// A node that was started anew may have lost what it had not written yet: rollups too.
Answer<Done> Upkeep::look_at_starts(Chores& shard, Client& client)
{
    bool has_moved = Clock::now() >= shard.next_tidy;
    for (Client& node : shard.clients) {
        auto answer = node.ask("SELECT toInt64(toUnixTimestamp(now())) - toInt64(uptime()) FORMAT RowBinary",
                               m_rounds.bounds(2s));
        if (!answer)
            continue;
        const Seconds start = RowReader(*answer).i64();
        Seconds& before = shard.starts[node.node().name()];
        has_moved = has_moved || std::abs(start - before) > g_start_slack;
        before = start;
    }
    if (!has_moved)
        return Done();
    auto done = tidy_rollups(client, m_rounds.bounds(g_rollup));
    if (done)
        shard.next_tidy = Clock::now() + g_tidy;
    return done;
}

Answer<Done> Upkeep::roll(Chores& shard, Client& client)
{
    auto last = last_closed_day(client, m_rounds.bounds(5s));
    if (!last)
        return last.fault();
    auto days = days_to_roll(client, std::numeric_limits<Day>::min(), *last + 1, m_rounds.bounds(30s));
    if (!days)
        return days.fault();
    Answer<Done> done = Done();
    for (const Dated& day : *days) {
        if (m_rounds.is_ending())
            return Done();
        auto made = make_rollup(client, shard.clients, day, m_rounds.bounds(g_rollup));
        if (!made && made.fault().kind != Trouble::Kind::code)
            return made;
        if (!made)
            done = made; // one that the node refuses holds up no other
        auto is_mine = shard.lease.take(client, m_rounds.bounds(5s));
        if (!is_mine || !*is_mine)
            return is_mine ? done : Answer<Done>(is_mine.fault());
    }
    return done;
}

Answer<Done> Upkeep::keep(Chores& shard)
{
    Retention retention;
    {
        std::lock_guard hold(m_lock);
        retention = m_retention;
    }
    Answer<Done> done = Done();
    if (retention.raw_before)
        done = drop_weeks(shard.clients, week_of(*retention.raw_before / 1000), m_rounds.bounds(60s));
    if (done)
        done = delete_old(shard.clients, retention, m_rounds.bounds(60s));
    if (!done || Clock::now() < shard.next_repeat || shard.number != 0)
        return done;
    shard.next_repeat = Clock::now() + g_repeat;
    auto repeated = repeat_deletions(*m_layout, Clock::now() + 60s);
    return repeated ? done : Answer<Done>(Trouble{Trouble::Kind::late, 0, repeated.fault().text});
}

} // namespace store::clickhouse
