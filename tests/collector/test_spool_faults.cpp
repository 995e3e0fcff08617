// A collector's spool before nodes that die, refuse and come back.
// Labels: cluster, threads
#ifdef ANALYTICS_COLLECTOR_CLUSTER

#include "cluster_nodes.h"
#include "stores.h"

#include "store/clickhouse/row_binary.h"
#include "store/spool/collecting.h"

#include <future>
#include <set>

namespace test {

using namespace std::chrono;
using store::clickhouse::Client;

class SpoolFaults : public testing::Test
{
protected:
    SpoolFaults()
    {
        m_options.spool = m_folder.file("spool.db");
        m_options.answer_wait = seconds(2);
        m_options.keep = seconds(60);
        m_options.group_time = milliseconds(20);
        m_spLayout = layout();
        EXPECT_TRUE(value_of(store::clickhouse::prepare(*m_spLayout, [](const std::string&) {})));
    }

    static bool value_of(const store::Result<store::Done>& done)
    {
        EXPECT_TRUE(done) << done.fault().text;
        return static_cast<bool>(done);
    }

    std::shared_ptr<store::clickhouse::Layout> layout()
    {
        auto parsed = store::clickhouse::parse_address(m_nodes.address(), m_options);
        EXPECT_TRUE(parsed) << parsed.fault().text;
        return std::make_shared<store::clickhouse::Layout>(*parsed);
    }

    void begin()
    {
        auto started = store::spool::Collecting::start(m_spLayout, m_options);
        ASSERT_TRUE(started) << started.fault().text;
        m_spCollecting = *started;
        m_spWriting = store::spool::Collecting::writing(m_spCollecting);
    }
    void end()
    {
        m_spWriting.reset();
        m_spCollecting.reset();
    }

    /// Events of a new batch, or of one that is named; whether they were answered well.
    bool write(size_t lines = 20, char batch = 0)
    {
        std::string text;
        for (size_t i = 0; i < lines; ++i)
            text += event_line("n", "i" + std::to_string(i), 1700000000) + "\n";
        m_written += batch == 0 ? lines : 0;
        store::Upload sent = upload(text, batch == 0 ? ++m_batch : batch);
        const store::Upload* one = &sent;
        auto receipts = m_spWriting->write({&one, 1}, {});
        EXPECT_TRUE(receipts) << receipts.fault().text;
        m_receipt = receipts ? receipts->front() : store::Receipt();
        std::promise<bool> settled;
        m_spWriting->settle(0, [&](const std::optional<store::Fault>& fault) { settled.set_value(!fault); });
        return settled.get_future().get();
    }

    uint64_t number(size_t replica, const std::string& sql)
    {
        Client client(m_spLayout->shards[0][replica], *m_spLayout);
        auto answer = client.ask(sql + " FORMAT RowBinary");
        return answer ? store::clickhouse::RowReader(*answer).u64() : ~uint64_t{0};
    }
    uint64_t events(size_t replica)
    {
        return number(replica, "SELECT uniqExact(installation, batch, line) FROM events");
    }
    bool are_all_there()
    {
        return support::wait_until([&] { return events(0) == m_written && events(1) == m_written; });
    }
    /// Whether so many groups wait for the time to keep to pass.
    bool is_kept(uint64_t groups)
    {
        return value(store::spool::read_status(m_options.spool)).groups_unchecked == groups;
    }

    /// What goes wrong, and how the collector shows it.
    struct Harm
    {
        const char* what;
        std::function<void()> hurt, mend;
        bool is_answered;    ///< all the same
        std::set<int> codes; ///< one of which a replica tells
    };
    std::function<void()> tells(std::string word, std::vector<std::string> nodes)
    {
        return [=, this] {
            for (const std::string& node : nodes)
                m_nodes.tell(word, node);
        };
    }
    /// On both replicas.
    std::function<void()> runs(std::string sql)
    {
        return [=, this] {
            for (const auto& node : m_spLayout->shards[0])
                EXPECT_TRUE(Client(node, *m_spLayout).run(sql));
        };
    }
    void shows(const Harm& harm)
    {
        const auto start = steady_clock::now();
        EXPECT_EQ(write(), harm.is_answered);
        EXPECT_LT(steady_clock::now() - start, harm.is_answered ? seconds(2) : seconds(4));
        EXPECT_TRUE(support::wait_until([&] {
            const auto replicas = m_spCollecting->status().replicas;
            return std::any_of(replicas.begin(), replicas.end(),
                               [&](const auto& one) { return harm.codes.count(one.last_code) != 0; });
        }));
        EXPECT_EQ(m_spCollecting->status().door.has_value(), !harm.is_answered);
        // Of the uploads that come within a second, a shut door lets one through, to see whether it may open again.
        EXPECT_FALSE(m_spWriting->door());
        EXPECT_EQ(m_spWriting->door().has_value(), !harm.is_answered);
    }

    ClusterNodes m_nodes;
    support::ScratchFolder m_folder;
    store::ClusterOptions m_options;
    std::shared_ptr<store::clickhouse::Layout> m_spLayout;
    std::shared_ptr<store::spool::Collecting> m_spCollecting;
    std::unique_ptr<store::Writing> m_spWriting;
    store::Receipt m_receipt;
    size_t m_written = 0;
    char m_batch = 0;
};

TEST_F(SpoolFaults, NamesWhatIsWrongAndShipsAllOnceItIsMended)
{
    const Harm rows[] = {
        {"one replica dead", tells("kill", {"s1r1"}), tells("run", {"s1r1"}), true, {0}},
        {"the other dead", tells("kill", {"s1r2"}), tells("run", {"s1r2"}), true, {0}},
        {"one hangs", tells("hang", {"s1r1"}), tells("wake", {"s1r1"}), true, {0}},
        {"the other hangs", tells("hang", {"s1r2"}), tells("wake", {"s1r2"}), true, {0}},
        {"both dead, and the collector killed",
         tells("kill", {"s1r1", "s1r2"}),
         [&] {
             end();
             tells("run", {"s1r1", "s1r2"})();
             begin();
         },
         false,
         {0}},
        // A node that lost the keeper tells one of two numbers, and others (999) at first.
        {"no keeper", tells("kill", {"zookeeper"}), tells("run", {"zookeeper"}), false, {225, 242}},
        {"no table", runs("RENAME TABLE events TO away"), runs("RENAME TABLE away TO events"), false, {60}},
        {"a number that nobody knows",
         runs("CREATE MATERIALIZED VIEW bad ENGINE = Memory AS SELECT throwIf(line + 1 > 0) AS no FROM events"),
         runs("DROP TABLE bad"),
         false,
         {395}},
        {"a wrong password",
         [&] {
             end();
             m_spLayout->user = "analytics";
             m_spLayout->password = "wrong";
             begin();
         },
         [&] {
             end();
             m_spLayout = layout();
             begin();
         },
         false,
         {193}},
    };
    begin();
    for (const Harm& harm : rows) {
        SCOPED_TRACE(harm.what);
        EXPECT_TRUE(write());
        harm.hurt();
        shows(harm);
        harm.mend();
        EXPECT_TRUE(are_all_there());
        EXPECT_TRUE(support::wait_until([&] { return write(); }, seconds(15)));
        EXPECT_FALSE(m_spWriting->door());
    }
    EXPECT_TRUE(are_all_there());
}

TEST_F(SpoolFaults, SendsAgainWhatAReplicaMayHaveLostAtItsStart)
{
    begin();
    EXPECT_TRUE(write(1000));
    EXPECT_TRUE(are_all_there());
    // What a power cut takes was acknowledged, and may even have been on both.
    EXPECT_TRUE(support::wait_until([&] { return is_kept(1); }));
    EXPECT_TRUE(Client(m_spLayout->shards[0][0], *m_spLayout).run("TRUNCATE TABLE events"));
    EXPECT_TRUE(support::wait_until([&] { return events(0) == 0 && events(1) == 0; }));
    // A start this soon after another would be within the slack of clocks.
    EXPECT_TRUE(support::wait_until([&] { return number(1, "SELECT toUInt64(uptime())") > 5; }));
    m_nodes.tell("kill", "s1r2");
    m_nodes.tell("run", "s1r2");
    EXPECT_TRUE(are_all_there());
}

TEST_F(SpoolFaults, LetsGoOnceBothReplicasHadItForTheTimeToKeep)
{
    m_options.keep = seconds(1);
    begin();
    EXPECT_TRUE(write(1000));
    const char batch = m_batch;
    EXPECT_EQ(m_receipt.events, 1000u);
    EXPECT_TRUE(write(1000, batch));
    EXPECT_EQ(m_receipt.known, 1000u);
    EXPECT_TRUE(support::wait_until([&] { return m_spCollecting->status().spool.bytes == 0; }));
    EXPECT_EQ(m_spCollecting->status().spool.groups_unchecked, 0u);
    EXPECT_TRUE(write(1000, batch)); // it is not known here any more, and still the same to the nodes
    EXPECT_EQ(m_receipt.events, 1000u);
    EXPECT_TRUE(are_all_there());
}

} // namespace test

#endif
