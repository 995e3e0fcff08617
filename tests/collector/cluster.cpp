#ifdef ANALYTICS_COLLECTOR_CLUSTER

#include "cluster.h"

#include "support/scratch.h"
#include "support/wait.h"

#include "store/clickhouse/schema.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace test {

using namespace store::clickhouse;

namespace {

constexpr Bounds g_patient{std::chrono::minutes(10)};

void expect(const Answer<store::Done>& done)
{
    EXPECT_TRUE(done) << done.fault().text;
}

} // namespace

ClusterDatabase::ClusterDatabase(size_t replicas)
{
    static int number = 0;
    const std::string nodes = support::read_file(TEST_CLUSTER "/address");
    const std::string database = "/test_" + std::to_string(getpid()) + "_" + std::to_string(++number);
    Layout layout = *parse_address(nodes.substr(0, nodes.find('\n')) + database, {});
    m_address = "clickhouse://";
    for (auto& shard : layout.shards) {
        shard.resize(replicas);
        m_address += (m_address.back() == '/' ? "" : "+") + shard.front().name();
        for (size_t i = 1; i < replicas; ++i)
            m_address += "," + shard[i].name();
    }
    m_address += database;
    m_layout = std::make_shared<Layout>(std::move(layout));
    auto prepared = prepare(*m_layout, [](const std::string&) {});
    EXPECT_TRUE(prepared) << prepared.fault().text;
}

ClusterDatabase::~ClusterDatabase()
{
    run("DROP DATABASE " + m_layout->database);
}

void ClusterDatabase::run(const std::string& statement)
{
    for (const auto& shard : m_layout->shards) {
        for (const Node& node : shard)
            expect(Client(node, *m_layout).run(statement, g_patient));
    }
}

void ClusterDatabase::clear()
{
    for (const char* table : {"events", "rejects", "drops", "uploads", "installed", "marks"})
        run(std::string("TRUNCATE TABLE ") + table);
}

void ClusterDatabase::stop_merges()
{
    run("SYSTEM STOP MERGES " + m_layout->database + ".events");
}

void ClusterDatabase::insert(const std::vector<store::Upload>& uploads)
{
    std::vector<Piece> pieces;
    for (const store::Upload& upload : uploads)
        encode(upload, m_layout->shards.size(), pieces);
    std::map<std::pair<uint32_t, Kind>, std::string> blocks;
    for (const Piece& piece : pieces)
        blocks[{piece.shard, piece.kind}] += piece.row;
    for (const auto& [place, rows] : blocks) {
        const auto& nodes = m_layout->shards[place.first];
        const TableFacts& table = facts(place.second);
        expect(Client(nodes.front(), *m_layout).insert(table.name, table.columns, rows, g_patient));
        auto count = [&](const Node& node) {
            auto answer = Client(node, *m_layout).ask(std::string("SELECT count() FROM ") + table.name);
            return answer ? *answer : answer.fault().text;
        };
        EXPECT_TRUE(support::wait_until([&] { return count(nodes.front()) == count(nodes.back()); }));
    }
}

} // namespace test

#endif
