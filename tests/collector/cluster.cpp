#include "cluster.h"

#include "support/scratch.h"
#include "support/wait.h"

#include "store/clickhouse/schema.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace test {

using namespace store::clickhouse;

namespace {

void expect(const Answer<store::Done>& done)
{
    EXPECT_TRUE(done) << done.fault().text;
}

} // namespace

ClusterDatabase::ClusterDatabase()
{
    static int number = 0;
    const std::string nodes = support::read_file(TEST_CLUSTER "/address");
    m_address =
        nodes.substr(0, nodes.find('\n')) + "/test_" + std::to_string(getpid()) + "_" + std::to_string(++number);
    m_layout = std::make_shared<Layout>(*parse_address(m_address, {}));
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
            expect(Client(node, *m_layout).run(statement));
    }
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
        expect(Client(nodes.front(), *m_layout).insert(table.name, table.columns, rows));
        auto count = [&](const Node& node) {
            auto answer = Client(node, *m_layout).ask(std::string("SELECT count() FROM ") + table.name);
            return answer ? *answer : answer.fault().text;
        };
        EXPECT_TRUE(support::wait_until([&] { return count(nodes.front()) == count(nodes.back()); }));
    }
}

} // namespace test
