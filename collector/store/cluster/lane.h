// The rows on their way to one shard, and the thread that inserts them.
#pragma once

#include "store/clickhouse/client.h"
#include "store/clickhouse/rows.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <thread>

namespace store::cluster {

/// Counts the loads of a stretch of rows that are not in yet.
using Open = std::shared_ptr<std::atomic<unsigned>>;

/// One insert for each table.
struct Load
{
    std::array<std::string, clickhouse::g_kinds> rows;
    size_t lines = 0;
    std::set<uint16_t> weeks;
    Open open;

    void add(const clickhouse::Piece& piece);
    /// Whether a further row fits: an insert of many weeks costs the node a part for each.
    bool takes(const clickhouse::Piece& piece, size_t most_lines) const;
};

class Lane
{
public:
    Lane(const clickhouse::Layout& layout, size_t shard);
    /// Throws away what waits.
    ~Lane();
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    /// Waits while two loads wait; false after a fault.
    bool give(Load&& load);
    /// Waits until all is in.
    std::optional<Fault> finish();

private:
    void work();
    std::optional<Fault> insert(const Load& load);
    std::optional<clickhouse::Trouble> insert_into(clickhouse::Client& client, const Load& load);

    std::vector<clickhouse::Client> m_clients;
    size_t m_good = 0; ///< the node that took the last load
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Load> m_loads;
    bool m_is_busy = false;
    std::atomic<bool> m_stopping{false};
    std::optional<Fault> m_fault;
    std::thread m_thread;
};

} // namespace store::cluster
