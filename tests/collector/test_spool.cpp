// What a collector's spool holds, without a cluster behind it.
// Labels: threads
#ifdef ANALYTICS_COLLECTOR_CLUSTER

#include "stores.h"

#include "store/spool/collecting.h"
#include "support/http_server.h"

#include <future>

namespace test {

using store::spool::Collecting;

class Spool : public testing::Test
{
protected:
    Spool()
    {
        m_options.spool = m_folder.file("spool.db");
        m_options.answer = store::AnswerBy::spool;
        m_options.answer_wait = std::chrono::seconds(1);
        m_options.group_time = std::chrono::milliseconds(1);
        m_spLayout->shards = {{{"127.0.0.1", 1}}}; // nobody listens there
    }

    void begin()
    {
        m_spWriting.reset();
        m_spCollecting.reset();
        m_spCollecting = *Collecting::start(m_spLayout, m_options, m_screen);
        m_spWriting = Collecting::writing(m_spCollecting);
    }
    store::Result<std::vector<store::Receipt>> try_write(const store::Upload& upload)
    {
        const store::Upload* one = &upload;
        return m_spWriting->write({&one, 1}, {});
    }
    store::Receipt write(const store::Upload& upload) { return value(try_write(upload)).at(0); }
    uint64_t bytes() { return m_spCollecting->status().spool.bytes; }

    support::ScratchFolder m_folder;
    store::ClusterOptions m_options;
    store::spool::Screen m_screen;
    std::shared_ptr<store::clickhouse::Layout> m_spLayout = std::make_shared<store::clickhouse::Layout>();
    std::shared_ptr<Collecting> m_spCollecting;
    std::unique_ptr<store::Writing> m_spWriting;
};

// `lines` is a letter a line: that of its installation.
store::Upload lines(const std::string& lines, char batch, uint32_t first = 0, uint32_t dropped = 0)
{
    std::string text;
    for (const char installation : lines)
        text += installation == '!' ? "bad\n" : event_line("n", std::string(1, installation)) + "\n";
    return upload(text, batch, first, dropped);
}

TEST_F(Spool, KeepsALineOnceUntilItLeaves)
{
    const struct
    {
        const char* lines;
        char batch;
        uint32_t first, dropped;
        uint32_t events, rejects, known, newly_dropped;
    } rows[] = {
        {"aaa", 'B', 0, 0, 3, 0, 0, 0}, {"aaa", 'B', 0, 0, 0, 0, 3, 0},   {"aaaa!", 'B', 0, 0, 1, 1, 3, 0},
        {"aaa", 'B', 7, 0, 3, 0, 0, 0}, {"!aaaa", 'B', 4, 0, 2, 0, 3, 0}, {"aab", 'B', 0, 0, 1, 0, 2, 0},
        {"", 'B', 20, 5, 0, 0, 0, 5},   {"", 'B', 20, 5, 0, 0, 0, 0},     {"aaa", 'C', 0, 0, 3, 0, 0, 0},
        {"xyz", 0, 0, 0, 3, 0, 0, 0},   {"xyz", 0, 0, 0, 0, 0, 3, 0},     {"xyz!", 0, 0, 0, 0, 1, 3, 0},
        {"xy", 0, 0, 0, 2, 0, 0, 0},    {"xyz!x", 0, 0, 0, 1, 0, 4, 0},
    };
    begin();
    for (const auto& row : rows) {
        const store::Receipt receipt = write(lines(row.lines, row.batch, row.first, row.dropped));
        SCOPED_TRACE(std::string(row.lines) + " of " + row.batch + " at " + std::to_string(row.first));
        EXPECT_EQ(receipt.events, row.events);
        EXPECT_EQ(receipt.rejects, row.rejects);
        EXPECT_EQ(receipt.known, row.known);
        EXPECT_EQ(receipt.dropped, row.newly_dropped);
    }
    const uint64_t before = bytes();
    begin();
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(value(store::spool::read_status(m_options.spool)).bytes, before);
    for (const auto& row : rows)
        EXPECT_EQ(write(lines(row.lines, row.batch, row.first, row.dropped)).events, 0u) << row.lines;
}

TEST_F(Spool, RefusesUploadsAtItsLimitAndAnotherClustersFile)
{
    m_options.spool_bytes = 20000;
    constexpr store::Seconds old = 1500000000;
    m_screen.is_too_old = [](uint16_t week) { return week == store::clickhouse::week_of(old); };
    m_screen.is_forgotten = [](std::string_view installation) { return installation == "x"; };
    begin();
    EXPECT_EQ(write(lines("xax", 'A')).events, 1u);
    EXPECT_EQ(m_spCollecting->status().spool.forgotten, 2u);
    EXPECT_EQ(write(upload(event_line("n", "a", old), 'Y')).events, 0u);
    EXPECT_EQ(m_spCollecting->status().spool.too_old, 1u);
    char batch = 'B';
    while (try_write(lines(std::string(20, 'a'), batch)) && batch != 'Z')
        ++batch;
    EXPECT_EQ(try_write(lines("a", batch)).fault().kind, store::FaultKind::full);
    EXPECT_EQ(m_spWriting->door()->kind, store::FaultKind::full);
    EXPECT_TRUE(m_spCollecting->status().spool.is_full);
    EXPECT_LT(bytes(), 40000u);
    EXPECT_EQ(Collecting::start(m_spLayout, m_options).fault().kind, store::FaultKind::in_use);
    m_spWriting.reset();
    m_spCollecting.reset();
    m_spLayout->shards.push_back({{"127.0.0.1", 1}});
    EXPECT_EQ(Collecting::start(m_spLayout, m_options).fault().kind, store::FaultKind::foreign);
}

TEST_F(Spool, ADeadShardHoldsUpItsOwnUploadsAlone)
{
    support::HttpServer node([](const support::Request&) { return support::Reply{200, "", {}}; });
    m_options.answer = store::AnswerBy::replica;
    m_spLayout->shards = {{{"127.0.0.1", static_cast<uint16_t>(node.port())}}, {{"127.0.0.1", 1}}};
    begin();
    std::string of_shard(2, ' ');
    for (const char installation : {'a', 'b', 'c', 'd', 'e', 'f'})
        of_shard[store::clickhouse::shard_of(std::string(1, installation), 2)] = installation;
    const store::Upload alive = lines(of_shard.substr(0, 1), 'A'), dead = lines(of_shard.substr(1), 'B'),
                        rejected = upload("bad", 'C', 0, 0, of_shard.substr(1)), both = lines(of_shard, 'A');
    const store::Upload* together[] = {&alive, &dead, &both};
    for (const char* round : {"new", "known"}) {
        ASSERT_EQ(value(m_spWriting->write(together, {})).size(), 3u);
        std::promise<bool> settled[3];
        for (size_t i = 0; i < 3; ++i)
            m_spWriting->settle(i, [&, i](const std::optional<store::Fault>& fault) { settled[i].set_value(!fault); });
        EXPECT_TRUE(settled[0].get_future().get()) << round;
        EXPECT_FALSE(settled[1].get_future().get()) << round;
        EXPECT_FALSE(settled[2].get_future().get()) << round;
    }
    EXPECT_FALSE(m_spWriting->door());
    EXPECT_EQ(m_spCollecting->status().shut.size(), 1u);
    EXPECT_FALSE(m_spWriting->door_for(alive));
    EXPECT_EQ(!m_spWriting->door_for(dead) + !m_spWriting->door_for(rejected) + !m_spWriting->door_for(both), 1);
}

// A node that refuses some rows by number: what the engine refuses in rows that were well encoded is not known.
TEST_F(Spool, SetsALineAsideThatANodeRefusesWhileItTakesOthers)
{
    std::mutex lock;
    std::string refused = "bad apple", taken;
    support::HttpServer node([&](const support::Request& request) -> support::Reply {
        std::lock_guard hold(lock);
        if (request.target.find("INSERT") != std::string::npos && request.body.find(refused) != std::string::npos)
            return {500, "Code: 27, e.displayText() = DB::Exception: no"};
        taken += request.body;
        return {200, "", {}};
    });
    m_options.answer = store::AnswerBy::replica;
    m_spLayout->shards = {{{"127.0.0.1", static_cast<uint16_t>(node.port())}}};
    begin();
    const auto send = [&](char batch, const std::string& name) {
        std::string text = event_line("bad apple", "i") + "\n";
        for (int i = 0; i < 200; ++i)
            text += event_line(name + std::to_string(i), "i") + "\n";
        write(upload(text, batch));
        std::promise<bool> settled;
        m_spWriting->settle(0, [&](const std::optional<store::Fault>& fault) { settled.set_value(!fault); });
        return settled.get_future().get();
    };
    EXPECT_TRUE(send('B', "good"));
    auto status = m_spCollecting->status().spool;
    ASSERT_EQ(status.lines_aside, 1u);
    EXPECT_EQ(status.aside[0].code, 27);
    EXPECT_EQ(status.aside[0].table, "events");
    {
        std::lock_guard hold(lock);
        for (int i = 0; i < 200; ++i)
            EXPECT_NE(taken.find("good" + std::to_string(i)), std::string::npos);
        refused = "app"; // of every line: then it is not the lines
    }
    EXPECT_FALSE(send('C', "other"));
    EXPECT_EQ(m_spCollecting->status().spool.lines_aside, 1u);
    EXPECT_EQ(m_spCollecting->status().replicas[0].last_code, 27);
    {
        std::lock_guard hold(lock);
        refused = "nothing";
    }
    begin(); // what stood aside is tried again
    for (const char* name : {"other199", "bad apple"}) {
        EXPECT_TRUE(support::wait_until([&] {
            std::lock_guard hold(lock);
            return taken.find(name) != std::string::npos;
        }));
    }
}

} // namespace test

#endif
