// What questions to a cluster do when nodes fail, and its live stream.
// Labels: cluster
#ifdef ANALYTICS_COLLECTOR_CLUSTER

#include "cluster.h"
#include "stores.h"

namespace test {

using namespace store::clickhouse;

class ClusterReading : public testing::Test
{
protected:
    // Twenty installations, so that both shards have some.
    void SetUp() override
    {
        std::string text;
        for (int i = 0; i < 20; ++i)
            text += event_line("n", "i" + std::to_string(i), 1000) + "\n";
        m_database.insert(uploads(std::move(text), 'A', 1000));
        for (int i = 0; i < 20; ++i)
            m_events[shard_of("i" + std::to_string(i), 2)] += 1;
    }
    static std::vector<store::Upload> uploads(std::string text, char batch, store::Milliseconds received_at)
    {
        std::vector<store::Upload> made;
        made.push_back(upload(std::move(text), batch, 0, 0, "i", received_at));
        return made;
    }
    // The cluster with ports at which nobody listens in place of some replicas: 0 and 1 of the first shard, 2 and 3 of
    // the second.
    std::unique_ptr<store::Reading> reading_without(const std::vector<size_t>& replicas)
    {
        auto layout = std::make_shared<Layout>(*m_database.layout());
        for (size_t replica : replicas)
            layout->shards[replica / 2][replica % 2].port = 1;
        return make_reading({layout});
    }
    static std::string names(store::Reading& reading, store::Cursor& cursor)
    {
        store::Query query;
        query.limit = 2;
        std::string names;
        for (bool more = true; more;) {
            auto receipts = value(reading.receipts(query, cursor, {}));
            for (const store::EventRow& row : receipts.rows)
                names += *row.name;
            cursor = receipts.next;
            more = !receipts.at_end;
        }
        return names;
    }

    ClusterDatabase m_database;
    uint64_t m_events[2] = {};
};

TEST_F(ClusterReading, GoesToTheOtherReplicaAndNamesAMissingShard)
{
    const uint64_t all = m_events[0] + m_events[1];
    const struct
    {
        std::vector<size_t> dead;
        uint64_t events;
        const char* missing; // begins so
    } rows[] = {{{}, all, ""},
                {{0}, all, ""},
                {{1, 2}, all, ""},
                {{0, 1}, m_events[1], "Shard 1 does not answer (127.0.0.1:1: "},
                {{0, 2, 3}, m_events[0], "Shard 2 does not answer (127.0.0.1:1: "}};
    for (const auto& row : rows) {
        auto reading = reading_without(row.dead);
        EXPECT_EQ(value(reading->summary({}, {})).events, row.events);
        std::vector<std::string> missing = reading->take_missing();
        missing.resize(1);
        EXPECT_EQ(missing[0].substr(0, strlen(row.missing)), row.missing);
        EXPECT_EQ(missing[0].empty(), *row.missing == '\0');
        EXPECT_TRUE(reading->take_missing().empty());
    }
    EXPECT_EQ(reading_without({0, 1, 2, 3})->summary({}, {}).fault().kind, store::FaultKind::busy);
}

TEST_F(ClusterReading, EndsWhenItsTimeIsOverOrItIsStopped)
{
    auto reading = reading_without({});
    const std::atomic<bool> stop = true;
    const store::Limit limits[] = {{store::Clock::now(), nullptr}, {store::Clock::time_point::max(), &stop}};
    for (const store::Limit& limit : limits)
        EXPECT_EQ(reading->names({}, limit).fault().kind, store::FaultKind::late);
    EXPECT_TRUE(reading->names({}, {}));
    EXPECT_TRUE(reading->take_missing().empty());
}

TEST_F(ClusterReading, StreamsWhatIsStoredHoweverLateItWasSent)
{
    auto reading = reading_without({});
    store::Cursor cursor = value(reading->end({}));
    EXPECT_EQ(names(*reading, cursor), "");
    m_database.insert(uploads(event_line("b", "i1", -99999) + "\n" + event_line("c", "i1"), 'B', 5));
    EXPECT_EQ(names(*reading, cursor), "bc");
    m_database.run("OPTIMIZE TABLE events FINAL"); // other parts, the same rows
    m_database.insert(
        uploads(event_line("d", "i2") + "\n" + event_line("e", "i2") + "\n" + event_line("f", "i2"), 'C', 1));
    EXPECT_EQ(names(*reading, cursor), "def");
    EXPECT_EQ(names(*reading, cursor), "");
}

TEST_F(ClusterReading, LeavesOutWhoWasForgotten)
{
    ReadingParts parts{m_database.layout()};
    parts.forgotten = [](Client&) { return " AND installation NOT IN ('i3','i4')"; };
    auto reading = make_reading(parts);
    EXPECT_EQ(value(reading->summary({}, {})).installations, 18u);
    EXPECT_EQ(value(reading->installations({}, {})).total, 18u);
    store::Cursor cursor;
    EXPECT_EQ(names(*reading, cursor), std::string(18, 'n'));
}

} // namespace test

#endif
