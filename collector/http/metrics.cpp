#include "metrics.h"

#include <chrono>

namespace http {
namespace {

struct Row
{
    std::string name; ///< without the prefix; with its labels
    const char* kind;
    const char* help;
    uint64_t value;
};

std::string text_of(const std::vector<Row>& rows)
{
    std::string text, family;
    for (const Row& row : rows) {
        const std::string name = "analytics_collector_" + row.name;
        const std::string own = name.substr(0, name.find('{'));
        if (own != family)
            text += "# HELP " + own + " " + row.help + "\n# TYPE " + own + " " + row.kind + "\n";
        family = own;
        text += name + " " + std::to_string(row.value) + "\n";
    }
    return text;
}

uint64_t seconds_since(store::Milliseconds moment)
{
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    return moment != 0 && now > moment ? (now - moment) / 1000 : 0;
}

std::string spool_metrics(const store::ClusterStatus& cluster)
{
    const store::SpoolStatus& spool = cluster.spool;
    return text_of({
        {"spool_bytes", "gauge", "Size of the spool.", spool.bytes},
        {"spool_limit_bytes", "gauge", "The most it may have.", spool.limit},
        {"spool_blocks", "gauge", "Blocks not yet known to be safe on the cluster.",
         spool.blocks_waiting + spool.groups_unchecked},
        {"spool_blocks_waiting", "gauge", "Blocks that are on no replica yet.", spool.blocks_waiting},
        {"shipping_lag_seconds", "gauge", "Age of the oldest line that is on no replica yet.",
         seconds_since(spool.oldest_waiting)},
        {"unchecked_age_seconds", "gauge", "Age of the oldest line that is kept.", seconds_since(spool.oldest_kept)},
        {"spool_lines_aside", "gauge", "Lines that the cluster refuses.", spool.lines_aside},
        {"too_old_total", "counter", "Lines of weeks that were dropped by age.", spool.too_old},
        {"forgotten_total", "counter", "Lines of forgotten installations.", spool.forgotten},
        {"door_shut", "gauge", "Whether uploads, or those of a shard, are refused unread.",
         !cluster.shut.empty() || spool.is_full},
        {"upkeep_failing", "gauge", "Whether rollups, old weeks or deletions could not be seen to.",
         !cluster.upkeep.empty()},
    });
}

std::string replica_metrics(const std::vector<store::ReplicaStatus>& replicas)
{
    std::vector<Row> rows;
    rows.reserve(2 * replicas.size());
    const auto labels = [](const char* name, const store::ReplicaStatus& replica) {
        return std::string(name) + "{shard=\"" + std::to_string(replica.shard + 1) + "\",node=\"" + replica.node +
               "\"}";
    };
    for (const store::ReplicaStatus& replica : replicas)
        rows.push_back({labels("replica_up", replica), "gauge", "Whether the node answered last time.", replica.is_up});
    for (const store::ReplicaStatus& replica : replicas)
        rows.push_back({labels("replica_last_error", replica), "gauge", "The number of its last refusal, 0 for none.",
                        static_cast<uint64_t>(replica.last_code)});
    return text_of(rows);
}

} // namespace

std::string metrics(const ServerCounts& server, const Uploads& uploads, const store::WriterStatus& writer,
                    const std::optional<store::ClusterStatus>& cluster)
{
    const UploadCounts& counts = uploads.counts();
    const char* refused = "Uploads that were refused, by status.";
    const std::vector<Row> rows = {
        {"uploads_total", "counter", "Uploads that were stored.", counts.taken},
        {"events_total", "counter", "Events that were stored.", counts.events},
        {"rejected_lines_total", "counter", "Lines that were no events.", counts.rejects},
        {"repeated_lines_total", "counter", "Lines that were stored before.", counts.known},
        {"refused_total{status=\"400\"}", "counter", refused, counts.refused_400},
        {"refused_total{status=\"403\"}", "counter", refused, counts.refused_403},
        {"refused_total{status=\"413\"}", "counter", refused, counts.refused_413},
        {"refused_total{status=\"415\"}", "counter", refused, counts.refused_415},
        {"refused_total{status=\"429\"}", "counter", refused, counts.refused_429},
        {"refused_total{status=\"503\"}", "counter", refused, counts.refused_503},
        {"refused_total{status=\"other\"}", "counter", refused, counts.refused_other},
        {"connections", "gauge", "Open connections.", server.connections},
        {"connections_total", "counter", "Connections that were accepted.", server.accepted},
        {"connections_refused_total", "counter", "Connections closed for a limit.", server.refused_connections},
        {"late_total", "counter", "Requests dropped by a deadline.", server.late},
        {"cut_total", "counter", "Bodies that made way for others.", server.cut},
        {"body_bytes", "gauge", "Memory of bodies in flight.", server.memory},
        {"token_queue", "gauge", "Uploads that wait for their token's check.", uploads.waiting()},
        {"writer_queue", "gauge", "Uploads that wait to be stored.", writer.queued},
        {"writer_groups_total", "counter", "Transactions.", writer.groups},
        {"writer_failures_total", "counter", "Transactions that failed.", writer.failures},
        {"writer_last_commit_microseconds", "gauge", "How long the last transaction took.",
         static_cast<uint64_t>(writer.last_commit.count())},
    };
    return text_of(rows) + (cluster ? spool_metrics(*cluster) + replica_metrics(cluster->replicas) : "");
}

std::string health_json(const ServerCounts& server, const Uploads& uploads)
{
    const UploadCounts& counts = uploads.counts();
    const auto member = [](const char* name, uint64_t value) {
        return std::string("\"") + name + "\":" + std::to_string(value);
    };
    return member("connections", server.connections) + "," + member("uploads_since_start", counts.taken) + "," +
           member("refused_since_start", counts.refused_400 + counts.refused_403 + counts.refused_413 +
                                             counts.refused_415 + counts.refused_429 + counts.refused_503 +
                                             counts.refused_other) +
           "," + member("body_bytes", server.memory);
}

} // namespace http
