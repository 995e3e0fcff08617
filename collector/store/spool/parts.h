// What the threads of one collector share: the spool, a lane for each shard, and how the nodes answered.
#pragma once

#include "lane.h"

#include "store/clickhouse/client.h"

namespace store::spool {

using clickhouse::Answer;
using clickhouse::Client;
using clickhouse::Trouble;

/// How the nodes answered last. Any thread.
class Replicas
{
public:
    explicit Replicas(const clickhouse::Layout& layout);

    enum class Task
    {
        writing,
        asking ///< what a node answers although it cannot write
    };
    void answered(uint32_t shard, size_t replica, Task task);
    void failed(uint32_t shard, size_t replica, Task task, const Trouble& trouble);
    std::vector<ReplicaStatus> status() const;

private:
    mutable std::mutex m_lock;
    struct Replica
    {
        ReplicaStatus status;
        Task failed = Task::asking; ///< what came to nothing last
    };
    std::vector<std::vector<Replica>> m_shards;
};

/// Tells the shard that rows of these days and applications come, or came.
using WriteMarks = std::function<Answer<Done>(Client&, std::span<const std::pair<clickhouse::Day, std::string>>,
                                              const clickhouse::Bounds&)>;

struct Parts
{
    Parts(std::shared_ptr<const clickhouse::Layout> layout, const ClusterOptions& options, Screen screen,
          WriteMarks write_marks);

    const std::shared_ptr<const clickhouse::Layout> layout;
    const ClusterOptions options;
    const Screen screen;
    const WriteMarks write_marks; ///< may be empty
    std::shared_ptr<Spool> spool;
    std::vector<std::unique_ptr<Lane>> lanes; ///< by shard
    Replicas replicas;
    std::function<void()> on_shipped; ///< a group is on a replica
    std::atomic<bool> is_leaving{false};
    std::atomic<uint64_t> too_old{0}, forgotten{0}; ///< lines that were answered and not kept
    std::vector<std::atomic<uint64_t>> unchecked;   ///< groups by shard: shipped once and still in the spool

    /// Connections to the replicas of a shard, for one thread.
    std::vector<Client> clients(uint32_t shard) const;
    /// Waits, but not past the end of the process's work.
    void pause(std::chrono::milliseconds time) const;
};

/// Milliseconds since 1970 UTC, by this machine's clock.
Milliseconds now_ms();

} // namespace store::spool
