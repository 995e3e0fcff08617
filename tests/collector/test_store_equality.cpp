// The API over a cluster and over a file: equal, byte for byte, on the same uploads with repetitions among them.
// 20,000 events unless TEST_EQUALITY_EVENTS says otherwise.
// Labels: cluster
#ifdef ANALYTICS_COLLECTOR_CLUSTER

#include "cluster.h"
#include "stores.h"

#include "api/api.h"
#include "store/clickhouse/keeping.h"
#include "store/clickhouse/rollups.h"
#include "store/cluster/move.h"
#include "support/wait.h"

#include <chrono>
#include <list>
#include <random>

namespace {

using store::Seconds;
using namespace store::clickhouse;

constexpr Seconds g_start = 20759 * 86400LL, g_days = 24; // 2026-11-02, a Monday

// A store that is only asked.
class Asked : public store::Store
{
public:
    explicit Asked(ReadingParts parts) : m_parts(std::move(parts)) {}
    store::Result<std::unique_ptr<store::Writing>> writing() override { return store::Fault{}; }
    store::Result<std::unique_ptr<store::Reading>> reading() override { return make_reading(m_parts); }
    store::Result<store::Done> backup(const std::string&, const std::function<bool(const store::Progress&)>&) override
    {
        return store::Fault{};
    }

private:
    ReadingParts m_parts;
};

// Makes rollups of most days and waits until every node tells of them.
void make_rollups(const Layout& layout)
{
    const Day first = g_start / 86400, end = first + g_days;
    std::vector<Dated> days;
    for (Day day = first; day < end; ++day) {
        if (day % 5 != 0)
            days.insert(days.end(), {{day, "app0"}, {day, "app1"}});
    }
    for (size_t shard = 0; shard < layout.shards.size(); ++shard) {
        std::vector<Client> replicas = clients_of(layout, shard);
        EXPECT_TRUE(write_marks(replicas[0], days));
        for (const Dated& day : days)
            EXPECT_TRUE(make_rollup(replicas[0], replicas, day, {std::chrono::minutes(1)}));
        for (Client& replica : replicas)
            EXPECT_TRUE(support::wait_until(
                [&] { return 2 * closed_days(replica, std::nullopt, first, end).days.size() == days.size(); }));
    }
}

// Uploads as hosts send them, in the order of receipt: batches, whole files that grow, lines that are no events, told
// losses, clocks that are off, repetitions.
class Hosts
{
public:
    std::vector<store::Upload> next(int count)
    {
        std::vector<store::Upload> uploads;
        while (count-- > 0)
            uploads.push_back(one());
        return uploads;
    }

    static constexpr uint64_t events_an_upload = 25;

private:
    struct Sent
    {
        std::string text;
        std::optional<store::BatchId> batch;
        uint32_t dropped = 0;
        std::string sender;
    };

    uint64_t number(uint64_t below) { return m_random() % below; }

    store::Upload made(const Sent& sent)
    {
        m_received += 1 + static_cast<store::Milliseconds>(number(5000));
        intake::Form form;
        form.data = sent.text;
        form.sender = sent.sender;
        form.batch = sent.batch;
        form.dropped = sent.dropped;
        store::Upload upload;
        EXPECT_FALSE(intake::read_lines(std::move(form), std::nullopt, m_received, {}, upload));
        return upload;
    }

    store::Upload one()
    {
        if (!m_sent.empty() && number(20) == 0) // of the last few: a file remembers no more
            return made(m_sent[m_sent.size() - 1 - number(std::min<size_t>(m_sent.size(), 5))]);
        Sent sent;
        const uint64_t installation = number(900);
        sent.sender = "installation-" + std::to_string(installation);
        if (number(4) != 0)
            sent.batch.emplace() = batch();
        if (sent.batch && number(30) == 0)
            sent.dropped = static_cast<uint32_t>(1 + number(9));
        else
            sent.text = text(installation);
        m_sent.push_back(sent);
        return made(sent);
    }

    store::BatchId batch()
    {
        store::BatchId id;
        for (unsigned char& byte : id)
            byte = static_cast<unsigned char>(number(256));
        return id;
    }

    std::string text(uint64_t installation)
    {
        std::string lines;
        Seconds at = g_start + static_cast<Seconds>(number(g_days * 86400));
        for (uint64_t i = 0; i < events_an_upload; ++i) {
            at += static_cast<Seconds>(number(400));
            if (number(100) == 0)
                lines += "no event " + std::to_string(number(1000)) + "\n";
            lines += line(installation, number(500) == 0 ? at - 300000000000 / 10 : at) + "\n";
        }
        return lines;
    }

    std::string line(uint64_t installation, Seconds at)
    {
        static const char* const names[] = {"open", "save", "close", "größe", "", "print\\n", "(other)", "a,\\\"b\\\""};
        std::string members = "{ \"theme\": \"" + std::string(number(3) != 0 ? "dark" : "light") +
                              "\", \"size\": " + std::to_string(number(700)) +
                              ", \"ms\": " + std::to_string(number(100)) + "." + std::to_string(number(8) * 125) +
                              ", \"os_ver\": \"" + std::to_string(installation % 7) + "\", \"cpu_name\": \"c" +
                              std::to_string(installation % 3) + "\"";
        if (number(50) == 0)
            members += ", \"size\": \"again\", \"deep\": { \"a\": [ 1 ] }, \"1\": 1, \"one\": \"1\", \"x\": null, "
                       "\"big\": 1e300, \"ok\": true";
        if (number(400) == 0) {
            for (int i = 0; i < 70; ++i)
                members += ", \"k" + std::to_string(i) + "\": " + std::to_string(i);
        }
        const uint64_t name = number(std::size(names) + 2);
        const std::string version = std::to_string(1 + (at - g_start + 40000000000) / (86400 * 9)); // they go up
        std::string made = test::event_line("NAME", "installation-" + std::to_string(installation), at, members + " }",
                                            "app" + std::to_string(installation % 3 == 0 ? number(2) : 0), version);
        return made.replace(made.find("\"NAME\""), 6,
                            name == std::size(names)       ? "null"
                            : name == std::size(names) + 1 ? std::to_string(number(3))
                                                           : "\"" + std::string(names[name]) + "\"");
    }

    std::mt19937_64 m_random{11};
    store::Milliseconds m_received = (g_start + 86400) * 1000;
    std::vector<Sent> m_sent;
};

const char* const addresses[] = {
    "/api/summary?",
    "/api/series?step=hour",
    "/api/series?step=day",
    "/api/names?limit=7",
    "/api/versions?",
    "/api/facts?",
    "/api/properties?limit=10000",
    "/api/property?key=size&step=day",
    "/api/property?key=ms&step=hour&limit=20",
    "/api/property?key=(other)&step=day",
    "/api/installations?limit=40",
    "/api/timeline?limit=60",
    "/api/retention?",
    "/api/funnel?event=open&event=save&event=open",
    "/api/funnel?event=save&event=open&event=close",
    "/api/rejects?limit=50",
    "/api/export?format=jsonl",
};

const char* const filters[] = {
    "",
    "&from=2026-11-05T07:00:00Z&to=2026-11-19T03:00:00Z",
    "&from=2026-11-09&to=2026-11-16&application=app0",
    "&from=1900-01-01&to=2040-01-01&version=460",
    "&from=2026-11-03&to=2026-11-24&name=save",
    "&from=2026-11-03&to=2026-11-24&installation=installation-7",
    "&from=2026-11-03&to=2026-11-24&fact=os_ver:3",
    "&from=2026-11-03&to=2026-11-24&fact=size:7e0&name=%28other%29",
    "&from=1000-01-01&to=9999-01-01",
    "&application=none",
};

std::string text_of(api::Api& asked, const std::string& path, const std::string& words)
{
    api::Answer answer = asked.answer("GET", path, words, {});
    for (std::string piece; answer.more && !(piece = answer.more()).empty();)
        answer.body += piece;
    return std::to_string(answer.status) + " " + answer.body;
}

// `got` beside what each of them is.
void expect_equal(store::Store& expected, std::vector<std::pair<const char*, Asked>> got)
{
    api::Api of_file(expected, std::move(*expected.reading()), nullptr, {});
    std::list<api::Api> of_clusters;
    for (auto& [what, store] : got)
        of_clusters.emplace_back(store, std::move(*store.reading()), nullptr, api::Surroundings{});
    for (const std::string address : addresses) {
        for (const char* filter : filters) {
            const size_t mark = address.find('?');
            std::string words = address.substr(mark + 1) + filter;
            words.erase(0, words[0] == '&');
            const std::string file = text_of(of_file, address.substr(0, mark), words);
            EXPECT_EQ(file.substr(0, 4), "200 ") << address << filter;
            auto of_cluster = of_clusters.begin();
            for (const auto& [what, store] : got) {
                const std::string cluster = text_of(*of_cluster++, address.substr(0, mark), words);
                const auto differs = std::mismatch(cluster.begin(), cluster.end(), file.begin(), file.end());
                const size_t place = static_cast<size_t>(differs.first - cluster.begin());
                const size_t from = place < 60 ? 0 : place - 60;
                EXPECT_EQ(cluster == file, true) << what << " " << address << filter << "\nfile    "
                                                 << file.substr(from, 160) << "\ncluster " << cluster.substr(from, 160);
            }
        }
    }
}

} // namespace

namespace test {

TEST(StoreEquality, HoldsForEveryAddressOfTheApi)
{
    const char* wanted = getenv("TEST_EQUALITY_EVENTS");
    const uint64_t events = wanted != nullptr ? std::stoull(wanted) : 20000;
    ClusterDatabase database, moved;
    database.stop_merges();
    support::ScratchFolder folder;
    auto file = std::move(*store::open(folder.file("events.db"), {store::Opening::create}));
    auto writing = std::move(*file->writing());
    Hosts hosts;
    for (uint64_t done = 0; done < events; done += 400 * Hosts::events_an_upload) {
        const std::vector<store::Upload> uploads = hosts.next(400);
        database.insert(uploads);
        std::vector<const store::Upload*> group;
        for (const store::Upload& upload : uploads)
            group.push_back(&upload);
        for (size_t at = 0; at < group.size();)
            at += writing->write(std::span(group).subspan(at), {400, 100000, 8 << 20, std::chrono::hours(1)})->size();
    }
    make_rollups(*database.layout());
    for (const bool from_the_start : {false, true}) // what comes twice is there once
        value(store::cluster::move_file(folder.file("events.db"), *moved.layout(), {events / 10, from_the_start},
                                        [](auto) {}));
    expect_equal(*file, {{"rows", Asked({database.layout()})},
                         {"rollups", Asked({database.layout(), closed_days})},
                         {"moved", Asked({moved.layout()})}});
}

} // namespace test

#endif
