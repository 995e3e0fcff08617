#include "parts.h"

#include <thread>

namespace store::spool {

using namespace std::chrono;

Milliseconds now_ms()
{
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

Replicas::Replicas(const clickhouse::Layout& layout)
{
    for (const auto& nodes : layout.shards) {
        auto& replicas = m_shards.emplace_back();
        for (const clickhouse::Node& node : nodes) {
            ReplicaStatus& status = replicas.emplace_back();
            status.node = node.name();
            status.shard = static_cast<uint32_t>(m_shards.size() - 1);
        }
    }
}

void Replicas::answered(uint32_t shard, size_t replica)
{
    std::lock_guard hold(m_lock);
    ReplicaStatus& status = m_shards[shard][replica];
    status.is_up = true;
    status.last_code = 0;
    status.answered_at = now_ms();
}

void Replicas::failed(uint32_t shard, size_t replica, const Trouble& trouble)
{
    std::lock_guard hold(m_lock);
    ReplicaStatus& status = m_shards[shard][replica];
    status.is_up = trouble.kind == Trouble::Kind::code;
    status.last_code = trouble.code;
    status.last_trouble = trouble.text;
    status.trouble_at = now_ms();
}

std::vector<ReplicaStatus> Replicas::status() const
{
    std::lock_guard hold(m_lock);
    std::vector<ReplicaStatus> all;
    for (const auto& shard : m_shards)
        all.insert(all.end(), shard.begin(), shard.end());
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
