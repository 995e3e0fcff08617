// The page's panels over a cluster of two shards: the store's answer against the raw count over the same rows, which
// takes an event twice that was stored twice. 1 million events unless ANALYTICS_BENCH_MILLIONS says otherwise; 30 days,
// 20,000 installations, 40 names. Closed days are a week with rollups, today is a day without; both have 5 % repeated
// uploads.
#include "collector_events.h"
#include "session.h"
#include "table.h"

#include "store/clickhouse/reading.h"
#include "store/clickhouse/rollups.h"
#include "store/clickhouse/rows.h"
#include "store/clickhouse/schema.h"

#include <cstdlib>
#include <fstream>

using namespace bench;
using namespace store::clickhouse;
using store::Query;
using store::Reading;

namespace {

constexpr store::Seconds g_day = 86400;
constexpr Bounds g_patient{std::chrono::minutes(10)};

// Nodes of this program's own, one a shard.
class Nodes
{
public:
    Nodes()
    {
        run("start --shards 2 --replicas 1 ");
        std::string address;
        std::getline(std::ifstream(m_folder.file("address")), address);
        layout = std::make_shared<Layout>(*parse_address(address + "/bench", {}));
    }
    ~Nodes() { run("stop "); }

    std::shared_ptr<const Layout> layout;

private:
    void run(const char* words)
    {
        const std::string command = std::string(BENCH_NODES) + " " + words + m_folder.file("") + " >/dev/null";
        if (system(command.c_str()) != 0)
            fprintf(stderr, "%s failed\n", command.c_str());
    }

    Folder m_folder;
};

void check(const Answer<store::Done>& done)
{
    if (!done)
        fprintf(stderr, "%s\n", done.fault().text.c_str());
}

void insert(const Layout& layout, const std::vector<store::Upload>& uploads)
{
    std::vector<Piece> pieces;
    for (const store::Upload& upload : uploads)
        encode(upload, layout.shards.size(), pieces);
    std::vector<std::string> blocks(layout.shards.size());
    for (const Piece& piece : pieces)
        blocks[piece.shard] += piece.row;
    for (size_t shard = 0; shard < blocks.size(); ++shard)
        check(Client(layout.shards[shard].front(), layout)
                  .insert("events", facts(Kind::events).columns, blocks[shard], g_patient));
}

void fill(const Layout& layout, int uploads)
{
    const store::Seconds between = 30 * g_day / uploads;
    for (int done = 0; done < uploads; done += 1000)
        insert(layout, collector_uploads(done, std::min(1000, uploads - done), between));
    for (const auto& shard : layout.shards)
        check(Client(shard.front(), layout).run("SYSTEM STOP MERGES bench.events"));
    std::vector<store::Upload> again;
    for (int i = 0; i < uploads; i += 20)
        again.push_back(std::move(collector_uploads(i, 1, between).front()));
    insert(layout, again);
}

void make_rollups(const Layout& layout, Day first, Day end)
{
    for (const auto& shard : layout.shards) {
        Client client(shard.front(), layout);
        for (Day day = first; day < end; ++day) {
            const Dated dated{day, "editor"};
            check(write_marks(client, {&dated, 1}));
            check(make_rollup(client, {}, dated, g_patient));
        }
    }
}

struct Panel
{
    const char* name;
    void (*ask)(Reading& reading, Query query);
    const char* raw; ///< behind SELECT; "#" stands for FROM and the period
};

const Panel panels[] = {
    {"events per hour", [](Reading& reading, Query query) { reading.series(query, store::Step::hour, {}); },
     "hour, count(), uniqExact(installation) # GROUP BY hour"},
    {"summary", [](Reading& reading, Query query) { reading.summary(query, {}); },
     "count(), uniqExact(installation), uniqExact(application, version), uniqExact(name) #"},
    {"names", [](Reading& reading, Query query) { reading.names(query, {}); },
     "name, is_named, count(), uniqExact(installation) # GROUP BY name, is_named"},
    {"versions", [](Reading& reading, Query query) { reading.versions(query, {}); },
     "application, version, count(), uniqExact(installation) # GROUP BY application, version"},
    {"installations", [](Reading& reading, Query query) { reading.installations(query, {}); },
     "installation, application, count() AS n # GROUP BY installation, application ORDER BY n DESC LIMIT 100"},
    {"a name's properties",
     [](Reading& reading, Query query) {
         query.name = "name_7";
         reading.properties(query, {});
     },
     "p.key, p.type, p.text, count() FROM events ARRAY JOIN p WHERE name='name_7' AND @ GROUP BY p.key, p.type, "
     "p.text"},
    {"a name's numbers",
     [](Reading& reading, Query query) {
         query.name = "name_7";
         reading.numbers(query, "size", {});
     },
     "p.text[indexOf(p.key, 'size')] AS size, count() # AND name='name_7' GROUP BY size"},
    {"newest events", [](Reading& reading, Query query) { reading.timeline(query, {}); },
     "* # ORDER BY logged DESC LIMIT 100"},
    {"retention", [](Reading& reading, Query query) { reading.retention(query, {}); },
     "w, uniqExact(installation) FROM (SELECT intDiv(hour, 168) AS w, installation #) ANY INNER JOIN (SELECT "
     "installation, minMerge(first) AS seen FROM installed GROUP BY installation) USING (installation) GROUP BY w"},
};

std::string raw_select(const Panel& panel, const Query& query)
{
    const std::string period = Filter(query, {}, "").rows();
    std::string select = std::string("SELECT ") + panel.raw;
    if (size_t at = select.find('@'); at != std::string::npos)
        select.replace(at, 1, period);
    if (size_t at = select.find('#'); at != std::string::npos)
        select.replace(at, 1, "FROM events WHERE " + period);
    return select;
}

void ask_raw(Shards& shards, const std::string& select)
{
    auto done = shards.ask<int>({}, [&](Shard& shard, int&) {
        if (auto answer = shard.client().ask(select + " FORMAT RowBinary", g_patient); !answer)
            fprintf(stderr, "%s\n", answer.fault().text.c_str());
    });
    keep(done);
}

void measure(Table& table, const char* days, Reading& reading, Shards& shards, const Query& query, const Limits& limits)
{
    for (const Panel& panel : panels) {
        const std::string select = raw_select(panel, query);
        const Figures figures =
            compare_figures([&] { return 1e3 * seconds_of([&] { panel.ask(reading, query); }); },
                            [&] { return 1e3 * seconds_of([&] { ask_raw(shards, select); }); }, "ms", 5);
        table.row(std::string("cluster, ") + days + ": " + panel.name, "the raw count", figures, limits);
    }
}

const Group panel_rows("cluster: panels", [](Table& table) {
    if (system("command -v clickhouse-server /usr/sbin/clickhouse-server >/dev/null") != 0) {
        table.note("cluster: panels", "not measured: there is no clickhouse-server");
        return;
    }
    const Nodes nodes;
    const char* millions = getenv("ANALYTICS_BENCH_MILLIONS");
    if (auto made = prepare(*nodes.layout, [](const std::string&) {}); !made)
        fprintf(stderr, "%s\n", made.fault().text.c_str());
    fill(*nodes.layout, 10000 * (millions != nullptr ? atoi(millions) : 1));
    const Day first = static_cast<Day>(collector_start() / g_day) + 14;
    make_rollups(*nodes.layout, first, first + 7);
    auto reading = make_reading({nodes.layout, closed_days, nullptr});
    Shards shards(nodes.layout);
    Query query;
    query.from = first * g_day;
    query.to = query.from + 7 * g_day;
    measure(table, "closed days", *reading, shards, query, at_most(1.5, 0.5));
    query.from = (first + 9) * g_day;
    query.to = query.from + g_day;
    measure(table, "today", *reading, shards, query, at_most(4, 2));
});

} // namespace
