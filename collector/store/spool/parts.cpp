#include "parts.h"

#include <thread>

namespace store::spool {

using namespace std::chrono;

namespace {

constexpr Milliseconds g_trouble_counts_ms = 60000;

} // namespace

Milliseconds now_ms()
{
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

Replicas::Replicas(const clickhouse::Layout& layout)
{
    for (const auto& nodes : layout.shards) {
        auto& replicas = m_shards.emplace_back();
        for (const clickhouse::Node& node : nodes) {
            ReplicaStatus& status = replicas.emplace_back().status;
            status.node = node.name();
            status.shard = static_cast<uint32_t>(m_shards.size() - 1);
        }
    }
}

// A question that is answered says nothing of writing: what failed there stands until it is done again, or is long ago.
void Replicas::answered(uint32_t shard, size_t replica, Task task)
{
    std::lock_guard hold(m_lock);
    Replica& one = m_shards[shard][replica];
    one.status.is_up = true;
    one.status.answered_at = now_ms();
    const bool is_long_ago = one.status.answered_at - one.status.trouble_at > g_trouble_counts_ms;
    if (task == Task::writing || one.failed == Task::asking || is_long_ago)
        one.status.last_code = 0;
}

void Replicas::failed(uint32_t shard, size_t replica, Task task, const Trouble& trouble)
{
    std::lock_guard hold(m_lock);
    Replica& one = m_shards[shard][replica];
    one.failed = task;
    one.status.is_up = trouble.kind == Trouble::Kind::code;
    one.status.last_code = trouble.code;
    one.status.last_trouble = trouble.text;
    one.status.trouble_at = now_ms();
}

std::vector<ReplicaStatus> Replicas::status() const
{
    std::lock_guard hold(m_lock);
    std::vector<ReplicaStatus> all;
    for (const auto& shard : m_shards) {
        for (const Replica& replica : shard)
            all.push_back(replica.status);
    }
    return all;
}

Parts::Parts(std::shared_ptr<const clickhouse::Layout> nodes, const ClusterOptions& chosen, Screen keeps_out,
             WriteMarks marks)
    : layout(std::move(nodes)),
      options(chosen),
      screen(std::move(keeps_out)),
      write_marks(std::move(marks)),
      replicas(*layout),
      unchecked(layout->shards.size())
{
    GroupBounds bounds;
    bounds.lines = options.group_lines;
    bounds.time = options.group_time;
    for (size_t shard = 0; shard < layout->shards.size(); ++shard)
        lanes.push_back(std::make_unique<Lane>(bounds));
}

std::vector<Client> Parts::clients(uint32_t shard) const
{
    std::vector<Client> clients;
    for (const clickhouse::Node& node : layout->shards[shard])
        clients.emplace_back(node, *layout);
    return clients;
}

void Parts::pause(milliseconds time) const
{
    for (const auto until = Clock::now() + time; !is_leaving && Clock::now() < until;)
        std::this_thread::sleep_for(milliseconds(20));
}

} // namespace store::spool
