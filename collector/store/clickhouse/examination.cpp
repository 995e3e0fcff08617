#include "examination.h"

#include "row_binary.h"
#include "schema.h"
#include "tables.h"

#include <future>
#include <set>

namespace store::clickhouse {

namespace {

using namespace std::chrono;

constexpr int64_t g_clock_slack = 3; // seconds; the node's clock is asked in whole ones
constexpr uint64_t g_lag_most = 60;  // seconds
constexpr uint64_t g_lag_known = 10 * 365 * 86400;
constexpr uint64_t g_free_least = 10; // per cent of the disk

Bounds bounds()
{
    Bounds bounds;
    bounds.time = milliseconds(5000);
    return bounds;
}

// The engine's numbers, which no version changes.
struct Advice
{
    int code;
    const char* text;
};
constexpr Advice g_advice[] = {
    {60, "a table is missing: run \"analytics-collector cluster init\""},
    {81, "the database is missing: run \"analytics-collector cluster init\""},
    {16, "a column is missing: run \"analytics-collector cluster init\""},
    {47, "a column is missing: run \"analytics-collector cluster init\""},
    {75, "it cannot write, most likely as its disk is full: make room or a larger disk, it goes on by itself"},
    {115, "it does not know a setting: use the files of collector/deploy/clickhouse for its version"},
    {159, "a question took longer than its user's max_execution_time: ask for less, or raise it"},
    {160, "a question took longer than its user's max_execution_time: ask for less, or raise it"},
    {164, "its user may not write: give it a profile without readonly"},
    {192, "its user is not known there: put it into the node's users.xml, or name another in --store"},
    {193, "the password is wrong: look at --cluster-password and at the node's users.xml"},
    {194, "a password is needed: name its file with --cluster-password"},
    {497, "its user lacks a right: grant it all of the database"},
    {516, "user or password are wrong: look at --cluster-password and at the node's users.xml"},
    {202, "too many questions at once: raise max_concurrent_queries"},
    {210, "it does not reach another node or ZooKeeper: look at the network between them"},
    {225, "it does not reach ZooKeeper: start that, the node goes on by itself"},
    {241, "a question needed more memory than max_memory_usage allows: ask for less, or raise it"},
    {242, "it does not reach ZooKeeper, so it only reads: start that, the node goes on by itself"},
    {243, "its disk is full: make room or a larger disk, it goes on by itself"},
    {252, "its merges fall behind: fewer, larger inserts (--group-ms), or faster disks"},
    {286, "an insert with a quorum waits: the collectors use none, take insert_quorum out of the user's profile"},
    {999, "it does not reach ZooKeeper: start that, the node goes on by itself"},
};

void note(NodeReport& report, const Trouble& trouble)
{
    static constexpr const char* advice[] = {
        "start the node, or look at the network; its peer serves alone meanwhile",
        "it is overloaded or hangs; its peer serves alone meanwhile",
        "what answers there is no node of this cluster, or not by the certificate of --cluster-ca",
    };
    const bool is_code = trouble.kind == Trouble::Kind::code;
    report.refuses = is_code || trouble.kind == Trouble::Kind::refused;
    // What the engine adds of its own insides says nothing more.
    report.findings.push_back(trouble.text.substr(0, trouble.text.find(", e.what()")) + ": " +
                              (is_code ? advice_about(trouble.code) : advice[static_cast<size_t>(trouble.kind)]));
}

/// Notes why there is no answer.
template <class Use>
bool ask(NodeReport& report, Client& client, const std::string& sql, Use&& use)
{
    const auto answer = client.ask(sql + " FORMAT RowBinary", bounds());
    if (answer) {
        for (RowReader rows(*answer); !rows.done();)
            use(rows);
        return true;
    }
    note(report, answer.fault());
    return false;
}

int64_t now()
{
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

bool ask_who(NodeReport& report, Client& client)
{
    const int64_t before = now();
    const bool answers =
        ask(report, client, "SELECT version(), toUInt64(uptime()), toUInt32(now())", [&](RowReader& rows) {
            report.version = rows.text();
            report.uptime = rows.u64();
            report.clock_ahead = int64_t{rows.u32()} - (before + now()) / 2;
        });
    if (answers && std::abs(report.clock_ahead) > g_clock_slack)
        report.findings.push_back(
            report.node + ": its clock is " + std::to_string(std::abs(report.clock_ahead)) + " s " +
            (report.clock_ahead > 0 ? "ahead of" : "behind") +
            " this machine's: set both by NTP; events are counted all the same, by the hosts' clocks");
    return answers;
}

std::string name_in(const std::string& statement)
{
    const size_t begin = statement.find("EXISTS ") + 7;
    return statement.substr(begin, statement.find_first_of(" (", begin) - begin);
}

bool has_tables(NodeReport& report, Client& client, const Place& place)
{
    std::set<std::string> missing = {name_in(meta_table(place))};
    for (const std::string& statement : tables(place))
        missing.insert(name_in(statement));
    const std::string sql = "SELECT name FROM system.tables WHERE database = " + quoted(place.layout.database);
    const bool answered = ask(report, client, sql, [&](RowReader& rows) { missing.erase(std::string(rows.text())); });
    std::string names;
    for (const std::string& name : missing)
        names += (names.empty() ? "" : ", ") + name;
    if (answered && !missing.empty())
        report.findings.push_back(report.node + ": tables are missing (" + names +
                                  "): run \"analytics-collector cluster init\"");
    return answered && missing.empty();
}

void ask_replication(NodeReport& report, Client& client, const std::string& database)
{
    const std::string of_database = " WHERE database = " + quoted(database);
    ask(report, client,
        "SELECT toUInt64(max(absolute_delay)), toUInt64(sum(queue_size)) FROM system.replicas" + of_database,
        [&](RowReader& rows) {
            report.lag = rows.u64();
            report.queue = rows.u64();
        });
    if (report.lag > g_lag_known) // since 1970: it starts, and has not looked yet
        report.lag = 0;
    ask(report, client, "SELECT toUInt64(sum(bytes_on_disk)) FROM system.parts" + of_database,
        [&](RowReader& rows) { report.bytes = rows.u64(); });
    if (report.lag > g_lag_most)
        report.findings.push_back(report.node + ": it is " + std::to_string(report.lag) +
                                  " s behind its peer: it catches up by itself; if the number grows, look at its disk "
                                  "and at its error log");
}

// Older versions have no such table: then a full disk shows in its refusals alone.
void ask_disk(NodeReport& report, Client& client)
{
    const auto answer = client.ask(
        "SELECT toUInt64(min(free_space)), toUInt64(min(total_space)) FROM system.disks FORMAT RowBinary", bounds());
    if (!answer)
        return;
    RowReader rows(*answer);
    report.free_bytes = rows.u64();
    report.disk_bytes = rows.u64();
    if (report.disk_bytes != 0 && report.free_bytes / (report.disk_bytes / 100 + 1) < g_free_least)
        report.findings.push_back(report.node + ": less than " + std::to_string(g_free_least) +
                                  " % of its disk are free: make room, a larger disk, or --retain shorter");
}

void try_to_store(NodeReport& report, Client& client)
{
    std::string row;
    RowWriter(row).fixed(std::string(32, '0')).u32(1);
    const auto stored = client.insert("logouts", "session, until", row, bounds());
    report.takes_rows = bool(stored);
    if (!stored)
        note(report, stored.fault());
}

NodeReport examine_node(const Place& place)
{
    NodeReport report;
    report.node = place.node.name();
    report.shard = static_cast<uint32_t>(place.shard);
    Client client(place.node, place.layout);
    report.answers = ask_who(report, client);
    if (!report.answers)
        return report;
    ask_replication(report, client, place.layout.database);
    ask_disk(report, client);
    if (has_tables(report, client, place))
        try_to_store(report, client);
    return report;
}

} // namespace

std::string advice_about(int code)
{
    for (const Advice& advice : g_advice)
        if (advice.code == code)
            return advice.text;
    return "error " + std::to_string(code) + " is none that this program knows: the node's error log says more";
}

std::vector<NodeReport> examine(const Layout& layout)
{
    std::vector<std::future<NodeReport>> asked;
    for (size_t shard = 0; shard < layout.shards.size(); ++shard)
        for (const Node& node : layout.shards[shard])
            asked.push_back(std::async(std::launch::async, [&layout, shard, &node] {
                return examine_node({layout, shard, node});
            }));
    std::vector<NodeReport> reports;
    reports.reserve(asked.size());
    for (auto& report : asked)
        reports.push_back(report.get());
    return reports;
}

std::vector<std::string> examine_shards(const Layout& layout, const std::vector<NodeReport>& nodes)
{
    std::vector<bool> answers(layout.shards.size());
    for (const NodeReport& node : nodes)
        answers[node.shard] = answers[node.shard] || node.answers || node.refuses;
    std::vector<std::string> findings;
    for (size_t shard = 0; shard < answers.size(); ++shard)
        if (!answers[shard])
            findings.push_back("shard " + std::to_string(shard + 1) +
                               ": no node answers: its events are missing in every figure, uploads wait in the spools "
                               "or are answered 503; start its nodes");
    const auto schema = check_schema(layout);
    if (!schema && (schema.fault().kind == FaultKind::foreign || schema.fault().kind == FaultKind::newer))
        findings.push_back(schema.fault().text);
    return findings;
}

} // namespace store::clickhouse
