#include "lane.h"

#include <algorithm>

namespace store::cluster {

using namespace std::chrono_literals;

namespace {

constexpr size_t g_weeks = 50;
constexpr auto g_patience = 60s;

// What waiting does not mend: a table or column that is not there, a wrong login.
bool is_for_good(const clickhouse::Trouble& trouble)
{
    static constexpr int codes[] = {10, 16, 47, 60, 81, 164, 192, 193, 194, 497, 516};
    return trouble.kind == clickhouse::Trouble::Kind::code &&
           std::find(std::begin(codes), std::end(codes), trouble.code) != std::end(codes);
}

} // namespace

void Load::add(const clickhouse::Piece& piece)
{
    rows[static_cast<size_t>(piece.kind)] += piece.row;
    ++lines;
    if (piece.kind == clickhouse::Kind::events)
        weeks.insert(piece.week);
}

bool Load::takes(const clickhouse::Piece& piece, size_t most_lines) const
{
    return lines < most_lines && (weeks.size() < g_weeks || weeks.count(piece.week) != 0);
}

Lane::Lane(const clickhouse::Layout& layout, size_t shard)
{
    for (const clickhouse::Node& node : layout.shards[shard])
        m_clients.emplace_back(node, layout);
    m_thread = std::thread([this] { work(); });
}

Lane::~Lane()
{
    {
        std::lock_guard hold(m_lock);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

bool Lane::give(Load&& load)
{
    std::unique_lock hold(m_lock);
    m_changed.wait(hold, [this] { return m_loads.size() < 2 || m_fault; });
    if (m_fault)
        return false;
    if (load.open != nullptr)
        ++*load.open;
    m_loads.push_back(std::move(load));
    m_changed.notify_all();
    return true;
}

std::optional<Fault> Lane::finish()
{
    std::unique_lock hold(m_lock);
    m_changed.wait(hold, [this] { return (m_loads.empty() && !m_is_busy) || m_fault; });
    return m_fault;
}

void Lane::work()
{
    std::unique_lock hold(m_lock);
    for (;;) {
        m_changed.wait(hold, [this] { return m_stopping || (!m_loads.empty() && !m_fault); });
        if (m_stopping)
            return;
        const Load load = std::move(m_loads.front());
        m_loads.pop_front();
        m_is_busy = true;
        m_changed.notify_all();
        hold.unlock();
        auto fault = insert(load);
        hold.lock();
        m_is_busy = false;
        m_fault = std::move(fault);
        if (!m_fault && load.open != nullptr)
            --*load.open;
        m_changed.notify_all();
    }
}

std::optional<Fault> Lane::insert(const Load& load)
{
    const auto end = Clock::now() + g_patience;
    for (;;) {
        std::optional<clickhouse::Trouble> trouble;
        for (size_t i = 0; i < m_clients.size(); ++i) {
            const size_t at = (m_good + i) % m_clients.size();
            trouble = insert_into(m_clients[at], load);
            if (!trouble)
                return m_good = at, std::nullopt;
        }
        if (Clock::now() >= end || m_stopping || is_for_good(*trouble))
            return clickhouse::fault_of(*trouble);
        std::this_thread::sleep_for(500ms);
    }
}

std::optional<clickhouse::Trouble> Lane::insert_into(clickhouse::Client& client, const Load& load)
{
    clickhouse::Bounds bounds;
    bounds.stop = &m_stopping;
    for (size_t kind = 0; kind < load.rows.size(); ++kind) {
        const auto& facts = clickhouse::facts(static_cast<clickhouse::Kind>(kind));
        if (load.rows[kind].empty())
            continue;
        if (auto done = client.insert(facts.name, facts.columns, load.rows[kind], bounds); !done)
            return done.fault();
    }
    return std::nullopt;
}

} // namespace store::cluster
