// What becomes of a cluster's past: rollups while they are true, weeks that are dropped, installations forgotten.
// Labels: cluster
#include "cluster.h"
#include "stores.h"
#include "support/wait.h"

#include "store/clickhouse/rollups.h"
#include "store/clickhouse/row_binary.h"
#include "store/clickhouse/upkeep.h"

namespace test {

using namespace store::clickhouse;

namespace {

constexpr Day g_day = 20000; // 2024-10-04
const std::string g_application = "app";

} // namespace

class ClusterUpkeep : public testing::Test
{
protected:
    ClusterUpkeep() : m_layout(*m_database.layout())
    {
        m_layout.secret = "thirty-two bytes that all share.";
        m_installation = "i";
        m_replicas = clients_of(m_layout, shard_of(m_installation, m_layout.shards.size()));
    }

    /// Rows as a shipper brings them: two events, marks before.
    void ship(Day day, char batch)
    {
        const std::vector<Dated> days{{day, g_application}};
        EXPECT_TRUE(write_marks(m_replicas[0], days));
        std::vector<store::Upload> uploads;
        uploads.push_back(upload(event_line("a", m_installation, day * int64_t(86400)) + "\n" +
                                     event_line("b", m_installation, day * int64_t(86400) + 7200),
                                 batch));
        m_database.insert(uploads);
    }
    uint64_t roll()
    {
        return value(make_rollups(m_layout, g_day - 30, g_day + 30, [](size_t, const Dated&) {}));
    }
    std::vector<Day> closed() { return closed_days(m_replicas[0], std::nullopt, g_day - 30, g_day + 30).days; }
    uint64_t number(const std::string& select, size_t replica = 0)
    {
        auto answer = m_replicas[replica].ask("SELECT toUInt64(" + select + " FORMAT RowBinary");
        EXPECT_TRUE(answer) << answer.fault().text;
        return answer ? RowReader(*answer).u64() : 0;
    }
    void run(const std::string& statement)
    {
        auto done = m_replicas[0].run(statement);
        EXPECT_TRUE(done) << done.fault().text;
    }

    ClusterDatabase m_database;
    Layout m_layout;
    std::string m_installation;
    std::vector<Client> m_replicas; ///< of the installation's shard
};

TEST_F(ClusterUpkeep, ARollupCountsWhileItIsTrue)
{
    const std::vector<Day> both{g_day, g_day + 1}, second{g_day + 1}, none;
    const struct
    {
        const char* what;
        std::function<void()> act;
        std::vector<Day> closed;
        uint64_t made; ///< by the roll that follows
    } rows[] = {
        {"nothing is made yet", [&] { ship(g_day, 'a'), ship(g_day + 1, 'b'); }, none, 2},
        {"both are made", [] {}, both, 0},
        {"a late group comes", [&] { ship(g_day, 'c'); }, second, 1},
        {"another day has no rows", [&] { EXPECT_TRUE(tidy_rollups(m_replicas[0], {})); }, both, 0},
        {"rows of a rollup are lost",
         [&] {
             run("ALTER TABLE roll_names DELETE WHERE day=20001");
             EXPECT_TRUE(support::wait_until([&] { return number("count()) FROM roll_names WHERE day=20001") == 0; }));
             EXPECT_TRUE(tidy_rollups(m_replicas[0], {}));
         },
         {g_day},
         1},
    };
    for (const auto& row : rows) {
        row.act();
        EXPECT_EQ(closed(), row.closed) << row.what;
        EXPECT_EQ(roll(), row.made) << row.what;
    }
    const std::string newest = closed_days(m_replicas[1], std::nullopt, g_day, g_day + 1).rolls;
    EXPECT_EQ(number("sum(events)) FROM roll_active WHERE " + newest, 1), 4u);
    EXPECT_EQ(number("max(generation)) FROM roll_days WHERE day=20000") >> 20, 2u);
}

TEST_F(ClusterUpkeep, AWeekIsDroppedOnceItsFiguresAreMade)
{
    const uint16_t week = week_of(g_day * int64_t(86400));
    ship(g_day, 'a');
    const auto drop = [&] {
        auto done = drop_weeks(m_replicas, week + 1, {});
        EXPECT_TRUE(done) << done.fault().text;
        return number("max(week)) FROM retired");
    };
    EXPECT_LT(drop(), week); // its figures are not made yet
    roll();
    EXPECT_EQ(drop(), week); // remembered first, so that all hear of it
    EXPECT_EQ(number("count()) FROM events"), 2u);
    drop();
    EXPECT_EQ(number("count()) FROM events"), 0u);
    ship(g_day, 'b'); // a collector that had not heard of it
    EXPECT_EQ(closed(), std::vector<Day>{g_day});
    EXPECT_EQ(roll(), 0u);
    drop();
    EXPECT_EQ(number("count()) FROM events"), 0u);
    Exclusions exclusions(std::make_shared<Layout>(m_layout));
    EXPECT_TRUE(exclusions.is_too_old(week));
    EXPECT_FALSE(exclusions.is_too_old(week + 1));
    const store::Milliseconds week_after = (g_day + 7) * store::Milliseconds(86400000);
    EXPECT_TRUE(delete_old(m_replicas, {std::nullopt, week_after}, {}));
    EXPECT_TRUE(support::wait_until([&] { return number("count()) FROM roll_days") == 0; }));
    EXPECT_EQ(number("count()) FROM roll_active"), 0u);
}

TEST_F(ClusterUpkeep, AForgottenInstallationLeavesEveryReplica)
{
    ship(g_day, 'a');
    roll();
    Exclusions here(std::make_shared<Layout>(m_layout));
    EXPECT_EQ(value(forget(m_layout, &here, m_installation, std::chrono::seconds(20))), 2u);
    EXPECT_EQ(here.condition(), " AND installation NOT IN ('i')");
    ship(g_day, 'b'); // from a spool that had it
    Exclusions elsewhere(std::make_shared<Layout>(m_layout));
    EXPECT_EQ(elsewhere.condition(), " AND installation NOT IN ('i')");
    EXPECT_TRUE(elsewhere.is_forgotten(m_installation));
    EXPECT_FALSE(elsewhere.is_forgotten("j"));
    const auto until = store::Clock::now() + std::chrono::seconds(20);
    EXPECT_EQ(value(repeat_deletions(m_layout, until)), 1u);
    EXPECT_EQ(value(repeat_deletions(m_layout, until)), 0u);
    for (size_t replica : {0, 1}) {
        for (const char* table : {"events", "installed", "roll_active", "roll_names", "roll_facts"})
            EXPECT_EQ(number(std::string("count()) FROM ") + table, replica), 0u) << table;
    }
    m_layout.secret.clear();
    EXPECT_FALSE(forget(m_layout, nullptr, "j", std::chrono::seconds(1)));
}

TEST_F(ClusterUpkeep, OneOfTwoHoldsTheLease)
{
    Lease first("a"), second("a"), other("b");
    EXPECT_TRUE(*first.take(m_replicas[0], {}));
    EXPECT_FALSE(*second.take(m_replicas[0], {}));
    EXPECT_TRUE(*other.take(m_replicas[0], {}));
    first.release(m_replicas[0], {});
    EXPECT_TRUE(*second.take(m_replicas[0], {}));
}

} // namespace test
