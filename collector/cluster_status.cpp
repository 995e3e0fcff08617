// analytics-collector cluster status: how the nodes and this machine's spool are.
#include "cluster_status.h"

#include "cluster_words.h"
#include "commands.h"

#include "api/cluster_json.h"
#include "store/spool/spool.h"
#include "table.h"

#include <chrono>
#include <iostream>
#include <unistd.h>

namespace commands {

using store::clickhouse::NodeReport;

namespace {

constexpr const char* service_spool = "/var/lib/analytics-collector/spool.db";
constexpr store::Milliseconds waiting_most = 60'000;    // a line that waits longer is a finding
constexpr store::Milliseconds kept_most = 2 * 3600'000; // unchecked for longer

std::string size_of(uint64_t bytes)
{
    static constexpr const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    for (; bytes >= 10240 && unit + 1 < std::size(units); ++unit)
        bytes /= 1024;
    return std::to_string(bytes) + " " + units[unit];
}

std::string span_of(uint64_t seconds)
{
    if (seconds >= 2 * 86400)
        return std::to_string(seconds / 86400) + " d";
    return seconds >= 7200 ? std::to_string(seconds / 3600) + " h" : std::to_string(seconds) + " s";
}

std::string age_of(store::Milliseconds moment, store::Milliseconds now)
{
    return span_of(static_cast<uint64_t>(std::max<store::Milliseconds>(now - moment, 0) / 1000));
}

table::Row row_of(const NodeReport& node)
{
    table::Row row = {node.node, std::to_string(node.shard + 1)};
    if (!node.answers)
        return row.insert(row.end(), {node.refuses ? "refuses" : "down"}), row;
    const std::string free = node.disk_bytes != 0 ? size_of(node.free_bytes) : "?";
    row.insert(row.end(), {node.takes_rows ? "up" : "reads only", node.version, span_of(node.uptime),
                           std::to_string(node.clock_ahead) + " s", std::to_string(node.lag) + " s",
                           std::to_string(node.queue), size_of(node.bytes), free});
    return row;
}

std::string spool_line(const store::SpoolStatus& spool)
{
    return "spool " + spool.file + ": " + size_of(spool.bytes) + " of " + size_of(spool.limit) + ", " +
           std::to_string(spool.blocks_waiting) + " blocks wait, " + std::to_string(spool.groups_unchecked) +
           " groups unchecked, " + std::to_string(spool.lines_aside) + " lines stand aside\n";
}

std::string json_of(const NodeReport& node)
{
    api::Json json('{');
    json.text("node", node.node).count("shard", node.shard + 1).raw("up", node.answers ? "true" : "false");
    if (node.answers)
        json.raw("takes_rows", node.takes_rows ? "true" : "false")
            .text("version", node.version)
            .count("uptime", node.uptime)
            .raw("clock_ahead", std::to_string(node.clock_ahead))
            .count("lag", node.lag)
            .count("queue", node.queue)
            .count("bytes", node.bytes)
            .raw("free_bytes", node.disk_bytes != 0 ? std::to_string(node.free_bytes) : "null");
    return json.end('}');
}

} // namespace

void judge_spool(ClusterReport& report, store::Milliseconds now)
{
    if (!report.spool)
        return;
    const store::SpoolStatus& spool = *report.spool;
    const auto add = [&](const std::string& text) { report.findings.push_back("spool " + spool.file + ": " + text); };
    if (spool.is_full || (spool.limit != 0 && spool.bytes >= spool.limit))
        add("it is full, so uploads are answered 503: bring the nodes back, or raise --spool-bytes");
    if (spool.oldest_waiting != 0 && now - spool.oldest_waiting > waiting_most)
        add("lines wait for " + age_of(spool.oldest_waiting, now) +
            ": they are shipped as soon as a node of their shard takes them and a collector runs on this spool");
    if (spool.oldest_kept != 0 && now - spool.oldest_kept > kept_most)
        add("groups were not found on both replicas for " + age_of(spool.oldest_kept, now) +
            ": bring every node back; until then a lost disk may cost events");
    for (const store::LineAside& line : spool.aside)
        add("a line for " + line.table + " stands aside, refused by error " + std::to_string(line.code) + " (" +
            line.trouble + "): " + store::clickhouse::advice_about(line.code));
    if (spool.lines_aside > spool.aside.size())
        add(std::to_string(spool.lines_aside - spool.aside.size()) + " more lines stand aside");
}

std::string table_of(const ClusterReport& report)
{
    std::vector<table::Row> rows = {
        {"NODE", "SHARD", "STATE", "ENGINE", "UP", "CLOCK", "LAG", "QUEUE", "DATA", "FREE"}};
    for (const NodeReport& node : report.nodes)
        rows.push_back(row_of(node));
    std::string text = table::lines(rows) + "\n" + (report.spool ? spool_line(*report.spool) : "");
    for (const std::string& finding : report.findings)
        text += "! " + finding + "\n";
    return text + (report.findings.empty() ? "nothing is wrong\n" : "");
}

std::string json_of(const ClusterReport& report)
{
    api::Json nodes('['), findings('[');
    for (const NodeReport& node : report.nodes)
        nodes.element(json_of(node));
    for (const std::string& finding : report.findings)
        findings.element(api::quoted(finding));
    return api::Json('{')
               .raw("nodes", nodes.end(']'))
               .raw("spool", report.spool ? api::json_of(*report.spool) : "null")
               .raw("findings", findings.end(']'))
               .end('}') +
           "\n";
}

namespace {

/// That of the service where there is one and none is named.
std::optional<store::SpoolStatus> spool_of(const StoreWords& words)
{
    const store::ClusterOptions options = cluster_options(words.cluster, "");
    const bool is_service = words.cluster.options.spool.empty() && access(service_spool, F_OK) == 0;
    auto status = store::spool::read_status(is_service ? service_spool : options.spool);
    if (!status && status.fault().kind == store::FaultKind::missing)
        return std::nullopt; // no collector ran here
    if (!status)
        throw ClusterFailure(status.fault());
    status->limit = options.spool_bytes;
    return *status;
}

int show_status(const StoreWords& words, bool as_json)
{
    using namespace std::chrono;
    const auto layout = layout_of(words);
    ClusterReport report;
    report.nodes = store::clickhouse::examine(layout);
    for (const NodeReport& node : report.nodes)
        report.findings.insert(report.findings.end(), node.findings.begin(), node.findings.end());
    for (std::string& finding : store::clickhouse::examine_shards(layout, report.nodes))
        report.findings.push_back(std::move(finding));
    report.spool = spool_of(words);
    judge_spool(report, duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
    std::cout << (as_json ? json_of(report) : table_of(report)) << std::flush;
    return report.findings.empty() ? done : failed;
}

} // namespace

void add_cluster_status(CLI::App& cluster, int& status)
{
    const auto words = std::make_shared<StoreWords>();
    const auto as_json = std::make_shared<bool>(false);
    add_cluster_word(cluster, status, "status", "Says how the nodes and this machine's spool are, and what to do.",
                     words, [words, as_json] { return show_status(*words, *as_json); })
        ->add_flag("--json", *as_json, "for programs");
}

} // namespace commands
