// The page's panels over a cluster of two shards: the store's answer against the raw count over the same rows, which
// takes an event twice that was stored twice. 1 million events unless ANALYTICS_BENCH_MILLIONS says otherwise, and
// judged from 10 million on; 30 days, 20,000 installations, 40 names. Closed days are a week with rollups, today is a
// day without; both have 5 % repeated uploads.
#include "cluster_nodes.h"
#include "collector_events.h"

#include "intake/intake.h"
#include "store/clickhouse/reading.h"
#include "store/clickhouse/rollups.h"
#include "store/clickhouse/rows.h"

#include <cstdlib>
#include <stdexcept>

using namespace bench;
using namespace store::clickhouse;
using store::Query;
using store::Reading;

namespace {

constexpr store::Seconds g_day = 86400;
constexpr Bounds g_patient{std::chrono::minutes(10)};

void check(const Answer<store::Done>& done)
{
    if (!done)
        throw std::runtime_error(done.fault().text);
}

void insert(const Layout& layout, const std::vector<store::Upload>& uploads)
{
    std::vector<Piece> pieces;
    for (const store::Upload& upload : uploads)
        encode(upload, layout.shards.size(), pieces);
    std::map<std::pair<uint32_t, Kind>, std::string> blocks;
    for (const Piece& piece : pieces)
        blocks[{piece.shard, piece.kind}] += piece.row;
    for (const auto& [place, rows] : blocks) {
        const TableFacts& table = facts(place.second);
        check(Client(layout.shards[place.first].front(), layout).insert(table.name, table.columns, rows, g_patient));
    }
}

// The bench's events, one property of them as one that the library itself would have filled in; with every tenth upload
// comes one line that is no event.
std::vector<store::Upload> uploads_of(int first, int count, store::Seconds between)
{
    std::vector<store::Upload> uploads = collector_uploads(first, count, between);
    for (store::Upload& upload : uploads) {
        for (store::Property& property : upload.properties)
            property.is_fact = property.key == "mode";
    }
    for (int i = (first + 9) / 10 * 10; i < first + count; i += 10) {
        intake::Form form;
        form.data = "no event " + std::to_string(i) + "\n";
        form.sender = "bench";
        intake::read_lines(std::move(form), std::nullopt, (collector_start() + i * between) * 1000, {},
                           uploads.emplace_back());
    }
    return uploads;
}

void fill(const Layout& layout, int uploads)
{
    const store::Seconds between = 30 * g_day / uploads;
    for (int done = 0; done < uploads; done += 1000)
        insert(layout, uploads_of(done, std::min(1000, uploads - done), between));
    for (const auto& shard : layout.shards)
        check(Client(shard.front(), layout).run("SYSTEM STOP MERGES " + layout.database + ".events"));
    std::vector<store::Upload> again;
    for (int i = 0; i < uploads; i += 20)
        again.push_back(std::move(uploads_of(i, 1, between).front()));
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

template <class T>
const T& answered(const store::Result<T>& result)
{
    if (!result)
        throw std::runtime_error(result.fault().text);
    return *result;
}

Query of_name(Query query)
{
    query.name = "name_7";
    return query;
}

struct Panel
{
    const char* name;
    void (*ask)(Reading& reading, const Query& query);
    const char* raw; ///< behind SELECT; "#" stands for FROM and the period "@", "%" for the period of receipt
};

const Panel panels[] = {
    {"events per hour",
     [](Reading& reading, const Query& query) { answered(reading.series(query, store::Step::hour, {})); },
     "hour, count(), uniqExact(installation) # GROUP BY hour"},
    {"events per day",
     [](Reading& reading, const Query& query) { answered(reading.series(query, store::Step::day, {})); },
     "intDiv(hour, 24) AS day, count(), uniqExact(installation) # GROUP BY day"},
    {"summary", [](Reading& reading, const Query& query) { answered(reading.summary(query, {})); },
     "count(), uniqExact(installation), uniqExact(application, version), uniqExact(name) #"},
    {"names", [](Reading& reading, const Query& query) { answered(reading.names(query, {})); },
     "name, is_named, count(), uniqExact(installation) # GROUP BY name, is_named"},
    {"versions", [](Reading& reading, const Query& query) { answered(reading.versions(query, {})); },
     "application, version, count(), uniqExact(installation) # GROUP BY application, version"},
    {"facts", [](Reading& reading, const Query& query) { answered(reading.facts(query, {})); },
     "p.key, p.type, p.text, count(), uniqExact(installation) FROM events ARRAY JOIN p WHERE @ AND p.is_fact=1 GROUP "
     "BY "
     "p.key, p.type, p.text"},
    {"installations", [](Reading& reading, const Query& query) { answered(reading.installations(query, {})); },
     "installation, application, count() AS n # GROUP BY installation, application ORDER BY n DESC LIMIT 100"},
    {"a name's properties",
     [](Reading& reading, const Query& query) { answered(reading.properties(of_name(query), {})); },
     "p.key, p.type, p.text, count() FROM events ARRAY JOIN p WHERE name='name_7' AND @ GROUP BY p.key, p.type, "
     "p.text"},
    {"a name's numbers",
     [](Reading& reading, const Query& query) { answered(reading.numbers(of_name(query), "size", {})); },
     "p.text[indexOf(p.key, 'size')] AS size, count() # AND name='name_7' GROUP BY size"},
    {"a property's course",
     [](Reading& reading, const Query& query) {
         answered(reading.property_series(of_name(query), "size", store::Step::day, {}));
     },
     "intDiv(hour, 24) AS day, p.text[indexOf(p.key, 'size')] AS size, count() # AND name='name_7' GROUP BY day, size"},
    {"newest events", [](Reading& reading, const Query& query) { answered(reading.timeline(query, {})); },
     "* # ORDER BY logged DESC LIMIT 100"},
    {"funnel of two names",
     [](Reading& reading, const Query& query) {
         const std::string names[] = {"name_7", "name_8"};
         answered(reading.funnel(query, names, {}));
     },
     "count(), countIf(last>=first) FROM (SELECT installation, minIf(logged, name='name_7') AS first, maxIf(logged, "
     "name='name_8') AS last # AND name IN ('name_7', 'name_8') GROUP BY installation HAVING first>0)"},
    {"rejects", [](Reading& reading, const Query& query) { answered(reading.rejects(query, {})); },
     "* FROM rejects WHERE % ORDER BY received DESC LIMIT 100"},
    {"retention", [](Reading& reading, const Query& query) { answered(reading.retention(query, {})); },
     "w, uniqExact(installation) FROM (SELECT intDiv(hour, 168) AS w, installation #) ANY INNER JOIN (SELECT "
     "installation, minMerge(first) AS seen FROM installed GROUP BY installation) USING (installation) GROUP BY w"},
};

void put(std::string& text, const char* mark, const std::string& meant)
{
    if (const size_t at = text.find(mark); at != std::string::npos)
        text.replace(at, 1, meant);
}

std::string raw_select(const Panel& panel, const Query& query)
{
    std::string select = std::string("SELECT ") + panel.raw;
    put(select, "#", "FROM events WHERE @");
    put(select, "@", Filter(query, {}, "").rows());
    put(select, "%",
        "received>=" + std::to_string(query.from * 1000) + " AND received<" + std::to_string(query.to * 1000));
    return select;
}

void ask_raw(Shards& shards, const std::string& select)
{
    auto troubles = shards.ask<std::string>({}, [&](Shard& shard, std::string& trouble) {
        if (auto answer = shard.client().ask(select + " FORMAT RowBinary", g_patient); !answer)
            trouble = answer.fault().text;
    });
    for (const std::string& trouble : answered(troubles)) {
        if (!trouble.empty())
            throw std::runtime_error(trouble);
    }
}

void measure(Table& table, const char* days, Reading& reading, Shards& shards, const Query& query, const Limits& limits)
{
    for (const Panel& panel : panels) {
        const std::string select = raw_select(panel, query);
        const Figures figures =
            compare_figures([&] { return 1e3 * seconds_of([&] { panel.ask(reading, query); }); },
                            [&] { return 1e3 * seconds_of([&] { ask_raw(shards, select); }); }, "ms", 5);
        // Rejects are no events, and few: what a question costs by itself is all of it.
        const bool is_judged = panel.name != std::string("rejects");
        table.row(std::string("cluster, ") + days + ": " + panel.name, "the raw count", figures,
                  is_judged ? limits : Limits());
    }
}

const Group panel_rows("cluster: panels", [](Table& table) {
    const auto nodes = ClusterNodes::start(table, 1);
    if (!nodes)
        return;
    const auto layout = std::make_shared<Layout>(*parse_address(nodes->new_database(), {}));
    const char* millions = getenv("ANALYTICS_BENCH_MILLIONS");
    const int count = millions != nullptr ? atoi(millions) : 1;
    fill(*layout, 10000 * count);
    const Day first = static_cast<Day>(collector_start() / g_day) + 14;
    make_rollups(*layout, first, first + 7);
    auto reading = make_reading({layout, closed_days, nullptr});
    Shards shards(layout);
    Query query;
    query.from = first * g_day;
    query.to = query.from + 7 * g_day;
    // A question's fixed cost is most of it with fewer rows.
    const bool are_judged = count >= 10;
    measure(table, "closed days", *reading, shards, query, are_judged ? at_most(1.5, 0.5) : Limits());
    query.from = (first + 9) * g_day;
    query.to = query.from + g_day;
    measure(table, "today", *reading, shards, query, are_judged ? at_most(4, 2) : Limits());
});

} // namespace
