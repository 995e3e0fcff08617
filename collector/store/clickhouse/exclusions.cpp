#include "exclusions.h"

#include "row_binary.h"

#include <algorithm>

#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace store::clickhouse {

namespace {

using namespace std::chrono_literals;

constexpr auto g_between = 2s;     // questions to the shards
constexpr auto g_look_again = 60s; // for those who are to be gone
constexpr auto g_look_seldom = 1h; // when none was found
constexpr unsigned g_slices = 16;  // of the installations, so that no answer is too large

// Where an installation's id may stand.
const char* const g_installations =
    "(SELECT installation FROM installed UNION ALL SELECT installation FROM rejects UNION ALL "
    "SELECT installation FROM drops UNION ALL SELECT installation FROM roll_active)";

} // namespace

std::string hash_of(std::string_view installation, const std::string& secret)
{
    std::string hash(32, '\0');
    HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(installation.data()), installation.size(),
         reinterpret_cast<unsigned char*>(hash.data()), nullptr);
    return hash;
}

Answer<Excluded> read_excluded(Client& client, const Bounds& bounds)
{
    auto answer = client.ask("SELECT max(week), toFixedString('', 32) FROM retired UNION ALL "
                             "SELECT toUInt16(0), hash FROM forgotten FORMAT RowBinary",
                             bounds);
    if (!answer)
        return answer.fault();
    Excluded excluded;
    for (RowReader rows(*answer); !rows.done();) {
        excluded.last_week = std::max(excluded.last_week, rows.u16());
        excluded.hashes.emplace(rows.fixed(32));
    }
    excluded.hashes.erase(std::string(32, '\0'));
    return excluded;
}

Answer<std::vector<std::string>> find_forgotten(Client& client, const std::set<std::string>& hashes,
                                                const std::string& secret, const Bounds& bounds)
{
    std::vector<std::string> found;
    for (unsigned slice = 0; slice < g_slices && !hashes.empty(); ++slice) {
        auto answer = client.ask("SELECT DISTINCT installation FROM " + std::string(g_installations) +
                                     " WHERE cityHash64(installation) % " + std::to_string(g_slices) + " = " +
                                     std::to_string(slice) + " FORMAT RowBinary",
                                 bounds);
        if (!answer)
            return answer.fault();
        for (RowReader rows(*answer); !rows.done();) {
            const std::string_view installation = rows.text();
            if (hashes.count(hash_of(installation, secret)) != 0)
                found.emplace_back(installation);
        }
    }
    return found;
}

Exclusions::Exclusions(std::shared_ptr<const Layout> layout) : m_layout(std::move(layout))
{
    for (const auto& shard : m_layout->shards) {
        m_clients.emplace_back();
        for (const Node& node : shard)
            m_clients.back().emplace_back(node, *m_layout);
    }
    ask();
    m_rounds.begin([this] {
        while (m_rounds.wait(g_between))
            ask();
    });
}

bool Exclusions::is_forgotten(std::string_view installation) const
{
    if (!m_is_any || m_layout->secret.empty())
        return false;
    const std::string hash = hash_of(installation, m_layout->secret);
    std::lock_guard hold(m_lock);
    return m_hashes.count(hash) != 0;
}

std::string Exclusions::condition() const
{
    std::lock_guard hold(m_lock);
    std::string list;
    for (const std::string& installation : m_present)
        list += (list.empty() ? "" : ",") + quoted(installation);
    return list.empty() ? "" : " AND installation NOT IN (" + list + ")";
}

void Exclusions::forget(const std::string& installation)
{
    std::lock_guard hold(m_lock);
    m_hashes.insert(hash_of(installation, m_layout->secret));
    m_present.insert(installation);
    m_is_any = true;
}

void Exclusions::drop(uint16_t last_week)
{
    m_last_week = std::max<uint16_t>(m_last_week, last_week);
}

bool Exclusions::ask_shard(size_t shard, Excluded& all)
{
    for (Client& client : m_clients[shard]) {
        auto excluded = read_excluded(client, m_rounds.bounds(2s));
        if (!excluded)
            continue;
        all.last_week = std::max(all.last_week, excluded->last_week);
        all.hashes.merge(excluded->hashes);
        return true;
    }
    return false;
}

// A collector that was told a hash alone finds out whose rows are to be left out until they are gone.
void Exclusions::look_for(const std::set<std::string>& hashes)
{
    const bool is_new = hashes.size() != m_looked_for;
    if (hashes.empty() || m_layout->secret.empty() || (!is_new && Clock::now() < m_next_look))
        return;
    std::set<std::string> present;
    for (auto& replicas : m_clients) {
        for (Client& client : replicas) {
            auto found = find_forgotten(client, hashes, m_layout->secret, m_rounds.bounds(60s));
            if (!found)
                continue;
            present.insert(found->begin(), found->end());
        }
    }
    m_looked_for = hashes.size();
    m_next_look = Clock::now() + (is_new || !present.empty() ? Clock::duration(g_look_again) : g_look_seldom);
    std::lock_guard hold(m_lock);
    if (m_hashes.size() == hashes.size())
        m_present = std::move(present);
}

void Exclusions::ask()
{
    Excluded all;
    for (size_t shard = 0; shard < m_clients.size(); ++shard)
        ask_shard(shard, all);
    drop(all.last_week);
    {
        std::lock_guard hold(m_lock);
        m_hashes.merge(all.hashes);
        m_is_any = !m_hashes.empty();
        all.hashes = m_hashes;
    }
    look_for(all.hashes);
}

} // namespace store::clickhouse
