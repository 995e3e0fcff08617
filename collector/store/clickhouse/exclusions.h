// What a cluster keeps no more: weeks that were dropped by age, and installations that were forgotten. The weeks are
// known by the last of them. Of a forgotten installation only a keyed hash is kept, so that a list of those who asked
// to be forgotten is not what remains.
#pragma once

#include "rounds.h"

#include <set>

namespace store::clickhouse {

/// HMAC-SHA256 of an installation by the secret that all collectors share; 32 bytes.
std::string hash_of(std::string_view installation, const std::string& secret);

struct Excluded
{
    uint16_t last_week = 0; ///< this one and those before were dropped
    std::set<std::string> hashes;
};
/// What a node knows of it.
Answer<Excluded> read_excluded(Client& client, const Bounds& bounds);

/// The forgotten installations of which a node still has rows.
Answer<std::vector<std::string>> find_forgotten(Client& client, const std::set<std::string>& hashes,
                                                const std::string& secret, const Bounds& bounds);

/// Asks every shard again and again, on a thread of its own; what was heard once stays. All else: any thread.
class Exclusions
{
public:
    /// Asks once before it returns, some seconds at most: nodes that do not answer are asked again later.
    explicit Exclusions(std::shared_ptr<const Layout> layout);

    bool is_too_old(uint16_t week) const { return week <= m_last_week; }
    bool is_forgotten(std::string_view installation) const;
    /// What questions have to add: " AND installation NOT IN (...)", those who are forgotten and not yet gone; or
    /// nothing.
    std::string condition() const;

    /// Counts at once, before the cluster tells it again.
    void forget(const std::string& installation);
    void drop(uint16_t last_week);

private:
    void ask();
    bool ask_shard(size_t shard, Excluded& all);
    void look_for(const std::set<std::string>& hashes);

    const std::shared_ptr<const Layout> m_layout;
    std::vector<std::vector<Client>> m_clients; ///< the thread's own
    std::atomic<uint16_t> m_last_week{0};
    std::atomic<bool> m_is_any{false}; ///< somebody was forgotten: else no line is hashed
    mutable std::mutex m_lock;
    std::set<std::string> m_hashes;
    std::set<std::string> m_present; ///< the forgotten who may still have rows
    size_t m_looked_for = 0;         ///< how many hashes there were when they were looked for
    Clock::time_point m_next_look;
    Rounds m_rounds;
};

} // namespace store::clickhouse
