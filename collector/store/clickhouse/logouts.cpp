#include "logouts.h"

#include "row_binary.h"

namespace store::clickhouse {

using namespace std::chrono_literals;

namespace {

constexpr size_t number_size = 32; // hexadecimal digits

} // namespace

ClusterLogouts::ClusterLogouts(std::shared_ptr<const Layout> layout) : m_layout(std::move(layout))
{
    for (size_t shard = 0; shard < m_layout->shards.size(); ++shard)
        for (const Node& node : m_layout->shards[shard])
            m_peers.push_back({Client(node, *m_layout), shard, {}, {}});
    m_rounds.begin([this] { work(); });
}

void ClusterLogouts::end(const std::string& session, Seconds until)
{
    if (session.size() != number_size)
        return;
    std::unique_lock hold(m_lock);
    m_ended[session] = m_new[session] = until;
    m_rounds.wake();
    m_tried.wait_for(hold, 2s, [&] { return m_new.count(session) + m_now.count(session) == 0; });
}

bool ClusterLogouts::has_ended(const std::string& session)
{
    std::lock_guard hold(m_lock);
    return m_ended.count(session) != 0;
}

void ClusterLogouts::take_new()
{
    std::lock_guard hold(m_lock);
    m_now = std::exchange(m_new, {});
    for (Peer& peer : m_peers)
        peer.untold.insert(m_now.begin(), m_now.end());
}

bool ClusterLogouts::Peer::note(bool answered)
{
    next_try = answered ? Clock::time_point{} : Clock::now() + 5s;
    return answered;
}

// Each node is told by itself: whoever reads from any of them learns it without waiting for its peer.
void ClusterLogouts::tell(Peer& peer)
{
    if (peer.untold.empty() || Clock::now() < peer.next_try)
        return;
    std::string rows;
    for (const auto& [session, until] : peer.untold)
        RowWriter(rows).fixed(session).u32(static_cast<uint32_t>(until));
    if (peer.note(bool(peer.client.insert("logouts", "session, until", rows, m_rounds.bounds(1s)))))
        peer.untold.clear();
}

bool ClusterLogouts::listen_to(Peer& peer)
{
    const auto answer = peer.client.ask(
        "SELECT session, toUInt32(until) FROM logouts WHERE until > now() FORMAT RowBinary", m_rounds.bounds(1s));
    if (!peer.note(bool(answer)))
        return false;
    std::lock_guard hold(m_lock);
    for (RowReader rows(*answer); !rows.done();) {
        const std::string session(rows.fixed(number_size));
        const Seconds until = rows.u32();
        if (rows.ok())
            m_ended[session] = until;
    }
    return true;
}

// One shard would do while all live: each is asked, for each may be the one that was there when a login ended.
void ClusterLogouts::listen()
{
    std::vector<bool> heard(m_layout->shards.size());
    for (const bool was_gone : {false, true})
        for (Peer& peer : m_peers)
            if (!heard[peer.shard] && !m_rounds.is_ending() && was_gone == (peer.next_try > Clock::now()))
                heard[peer.shard] = listen_to(peer);
    const Seconds now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    std::lock_guard hold(m_lock);
    std::erase_if(m_ended, [now](const auto& one) { return one.second <= now; });
}

void ClusterLogouts::work()
{
    listen(); // what ended before this process began
    while (m_rounds.wait(1s)) {
        take_new();
        for (Peer& peer : m_peers)
            tell(peer);
        {
            std::lock_guard hold(m_lock);
            m_now.clear();
        }
        m_tried.notify_all();
        listen();
    }
}

} // namespace store::clickhouse
