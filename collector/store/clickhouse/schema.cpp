#include "schema.h"

#include "row_binary.h"
#include "tables.h"

#include <map>
#include <thread>

#include <openssl/rand.h>

namespace store::clickhouse {

namespace {

// The engine's numbers, which no version changes.
constexpr int g_unknown_table = 60;
constexpr int g_unknown_database = 81;
constexpr int g_replica_exists = 253;
constexpr int g_being_made = 57;      // by a statement whose answer was not waited for
constexpr int g_keeper_is_away = 999; // for some seconds, when the node was held up

constexpr auto g_patience = std::chrono::minutes(5);
constexpr auto g_statement = std::chrono::seconds(60);
constexpr auto g_look = std::chrono::seconds(5);

// What the table `meta` of a node says; empty where there is none.
using Meta = std::map<std::string, std::string>;

Answer<Meta> meta_of(const Place& place, const Bounds& bounds = {})
{
    Meta meta;
    auto answer = Client(place.node, place.layout)
                      .ask("SELECT name, argMax(value, changed) FROM meta GROUP BY name FORMAT RowBinary", bounds);
    if (!answer && (answer.fault().code == g_unknown_table || answer.fault().code == g_unknown_database))
        return meta;
    if (!answer)
        return answer.fault();
    for (RowReader rows(*answer); !rows.done();) {
        std::string_view name = rows.text();
        meta[std::string(name)] = rows.text();
    }
    return meta;
}

// What the address says that `meta` has to say, but for the cluster's id.
Meta meta_by_address(const Place& place)
{
    return {{"schema", std::to_string(g_schema)},
            {"shards", std::to_string(place.layout.shards.size())},
            {"shard", std::to_string(place.shard + 1)}};
}

std::optional<Fault> disagreement(const Place& place, const Meta& meta)
{
    if (meta.empty())
        return std::nullopt;
    int schema = std::atoi(meta.at("schema").c_str());
    if (schema > g_schema)
        return Fault{FaultKind::newer, place.node.name() +
                                           ": the tables were made by a later version of this program "
                                           "(schema " +
                                           meta.at("schema") + ")."};
    Meta wanted = meta_by_address(place);
    for (const char* name : {"shards", "shard"}) {
        auto found = meta.find(name);
        if (found == meta.end() || found->second != wanted[name])
            return Fault{FaultKind::foreign, place.node.name() + " belongs to shard " + meta.at("shard") + " of " +
                                                 meta.at("shards") + ", the address says shard " + wanted["shard"] +
                                                 " of " + wanted["shards"] + "."};
    }
    return std::nullopt;
}

template <class Use>
std::optional<Fault> for_each_node(const Layout& layout, Use&& use)
{
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        for (const Node& node : layout.shards[shard]) {
            if (std::optional<Fault> fault = use(Place{layout, shard, node}))
                return fault;
        }
    }
    return std::nullopt;
}

std::string random_id()
{
    unsigned char bytes[16];
    RAND_bytes(bytes, sizeof bytes);
    std::string text;
    for (unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

// Looks at every node before anything is changed.
// @param id  the cluster's, when a node tells it
std::optional<Fault> look_around(const Layout& layout, std::string& id)
{
    return for_each_node(layout, [&](const Place& place) -> std::optional<Fault> {
        auto meta = meta_of(place);
        if (!meta)
            return fault_of(meta.fault());
        if (auto fault = disagreement(place, *meta))
            return fault;
        auto own = meta->find("id");
        if (own != meta->end() && !id.empty() && own->second != id)
            return Fault{FaultKind::foreign, place.node.name() + " belongs to another cluster than the nodes before."};
        if (own != meta->end())
            id = own->second;
        return std::nullopt;
    });
}

// A node that has much else to do may take long; a statement that was cut off goes on there, and a try after it finds
// what it made.
Answer<Done> run_patiently(Client& client, const std::string& statement)
{
    for (const auto until = Clock::now() + g_patience;;) {
        auto done = client.run(statement, {g_statement, 0, until});
        const bool may_come = !done && (done.fault().kind == Trouble::Kind::late || done.fault().code == g_being_made ||
                                        done.fault().code == g_keeper_is_away);
        if (!may_come || Clock::now() + std::chrono::seconds(1) >= until)
            return done;
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

// A node that lost its disk is still known to the keeper as a replica: a table is then attached as if it had been
// there, and fetches all of its parts from the peer.
Answer<Done> make(Client& client, const std::string& statement, bool& is_regained)
{
    static const std::string create = "CREATE TABLE IF NOT EXISTS ";
    auto made = run_patiently(client, statement);
    if (made || made.fault().code != g_replica_exists || statement.compare(0, create.size(), create) != 0)
        return made;
    is_regained = true;
    return run_patiently(client, "ATTACH TABLE " + statement.substr(create.size()));
}

Answer<Done> make_database(const Place& place)
{
    Layout none = place.layout;
    none.database.clear(); // a question that names it would be refused before it is there
    Client client(place.node, none);
    return run_patiently(client, "CREATE DATABASE IF NOT EXISTS " + place.layout.database);
}

std::optional<Fault> prepare_node(const Place& place, const std::function<void(const std::string&)>& say)
{
    auto database = make_database(place);
    auto meta = meta_of(place);
    if (!database || !meta)
        return fault_of(database ? meta.fault() : database.fault());
    std::vector<std::string> statements = tables(place);
    statements.insert(statements.begin(), meta_table(place));
    for (int version = meta->empty() ? g_schema : std::atoi((*meta)["schema"].c_str()); version < g_schema; ++version)
        for (std::string& statement : step_from(version, place))
            statements.push_back(std::move(statement));
    Client client(place.node, place.layout);
    bool is_regained = false;
    for (const std::string& statement : statements) {
        if (auto made = make(client, statement, is_regained); !made) {
            Fault fault = fault_of(made.fault());
            fault.text += " (to: " + statement.substr(0, statement.find(" (")) + ")";
            return fault;
        }
    }
    say(place.node.name() + ": " +
        (is_regained     ? "tables are back, their rows come from the other replica"
         : meta->empty() ? "tables made"
                         : "ready"));
    return std::nullopt;
}

// Last, and once for the shard: a schema that is written down is whole.
std::optional<Fault> write_meta(const Place& place, const std::string& id)
{
    Meta meta = meta_by_address(place);
    meta["id"] = id;
    std::string rows;
    for (const auto& [name, value] : meta)
        RowWriter(rows).text(name).text(value).u64(g_schema);
    auto done = Client(place.node, place.layout).insert("meta", "name, value, changed", rows);
    return done ? std::nullopt : std::optional(fault_of(done.fault()));
}

} // namespace

Result<Done> prepare(const Layout& layout, const std::function<void(const std::string&)>& say)
{
    std::string id;
    if (auto fault = look_around(layout, id))
        return *fault;
    if (id.empty())
        id = random_id();
    if (auto fault = for_each_node(layout, [&](const Place& place) { return prepare_node(place, say); }))
        return *fault;
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        if (auto fault = write_meta({layout, shard, layout.shards[shard].front()}, id))
            return *fault;
    }
    return Done();
}

Result<Done> check_schema(const Layout& layout)
{
    std::vector<size_t> reached(layout.shards.size()), prepared(layout.shards.size());
    auto fault = for_each_node(layout, [&](const Place& place) -> std::optional<Fault> {
        auto meta = meta_of(place, {g_look});
        if (!meta && (meta.fault().kind == Trouble::Kind::code || meta.fault().kind == Trouble::Kind::refused))
            return fault_of(meta.fault());
        reached[place.shard] += bool(meta);
        prepared[place.shard] += meta && !meta->empty();
        return meta ? disagreement(place, *meta) : std::nullopt;
    });
    if (fault)
        return *fault;
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        if (reached[shard] != 0 && prepared[shard] == 0)
            return Fault{FaultKind::missing,
                         "The cluster has no tables yet: run \"analytics-collector cluster init\"."};
    }
    return Done();
}

} // namespace store::clickhouse
