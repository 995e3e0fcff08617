// The page's panels over many events: the store's answer against the same answer from its raw table. 1 million events
// unless ANALYTICS_BENCH_MILLIONS says otherwise; 30 days, 20,000 installations, 40 names; asked for are 7 days.
#include "collector_events.h"
#include "session.h"
#include "store/store.h"
#include "table.h"

#include <cstdlib>
#include <sqlite3.h>

using namespace bench;

namespace {

constexpr store::Seconds g_day = 86400;

void fill(store::Store& store, int uploads)
{
    auto writing = std::move(*store.writing());
    for (int done = 0; done < uploads; done += 1000) {
        std::vector<store::Upload> some = collector_uploads(done, std::min(1000, uploads - done), 30 * g_day / uploads);
        std::vector<const store::Upload*> waiting;
        for (const store::Upload& upload : some)
            waiting.push_back(&upload);
        for (size_t at = 0; at < waiting.size();)
            at += writing->write(std::span(waiting).subspan(at), {100, 100000, 8 << 20, std::chrono::hours(1)})->size();
    }
}

struct Panel
{
    const char* name;
    std::function<void(store::Reading&, const store::Query&)> ask;
    const char* raw; ///< the same from rows alone; ?1 and ?2 are the period
    Limits limits;
};

const Panel panels[] = {
    {"events per hour", [](auto& reading, const auto& query) { reading.series(query, store::Step::hour, {}); },
     "SELECT logged_at/3600, count(*), count(DISTINCT installation) FROM events WHERE logged_at>=?1 AND logged_at<?2 "
     "GROUP BY 1",
     at_most(0.35, 0.10)},
    {"summary", [](auto& reading, const auto& query) { reading.summary(query, {}); },
     "SELECT count(*), count(DISTINCT installation), count(DISTINCT kind) FROM events WHERE logged_at>=?1 AND "
     "logged_at<?2",
     at_most(0.35, 0.10)},
    {"names", [](auto& reading, const auto& query) { reading.names(query, {}); },
     "SELECT name, count(*), count(DISTINCT installation) FROM events JOIN kinds ON kinds.id=kind WHERE logged_at>=?1 "
     "AND "
     "logged_at<?2 GROUP BY 1",
     at_most(0.35, 0.10)},
    {"versions", [](auto& reading, const auto& query) { reading.versions(query, {}); },
     "SELECT version, count(*), count(DISTINCT installation) FROM events JOIN kinds ON kinds.id=kind WHERE "
     "logged_at>=?1 "
     "AND logged_at<?2 GROUP BY 1",
     at_most(0.35, 0.10)},
    {"installations",
     [](auto& reading, const auto& query) { reading.installations(query, {}); },
     "SELECT installation, count(*) FROM events WHERE logged_at>=?1 AND logged_at<?2 GROUP BY 1 ORDER BY 2 DESC LIMIT "
     "100",
     {}}, // from rows on both sides
    {"a name's properties",
     [](auto& reading, auto query) {
         query.name = "name_7";
         reading.properties(query, {});
     },
     "SELECT j.key, j.value, count(*) FROM events, json_each(members) AS j WHERE logged_at>=?1 AND logged_at<?2 AND "
     "kind IN "
     "(SELECT "
     "kinds.id FROM kinds JOIN texts ON texts.id=name WHERE text='name_7') GROUP BY 1, 2",
     at_most(1.2, 0.5)},
    {"a name's numbers",
     [](auto& reading, auto query) {
         query.name = "name_7";
         reading.numbers(query, "size", {});
     },
     "SELECT json_extract(members, '$.size') AS size FROM events WHERE logged_at>=?1 AND logged_at<?2 AND kind IN "
     "(SELECT "
     "kinds.id FROM kinds JOIN texts ON texts.id=name WHERE text='name_7') ORDER BY size",
     at_most(1.2, 0.5)},
    {"funnel of two names",
     [](auto& reading, const auto& query) {
         const std::string names[] = {"name_7", "name_8"};
         reading.funnel(query, names, {});
     },
     "WITH e AS MATERIALIZED (SELECT installation, logged_at, text FROM events JOIN kinds ON kinds.id=kind JOIN texts "
     "ON "
     "texts.id=name WHERE logged_at>=?1 AND logged_at<?2 AND text IN ('name_7', 'name_8')), "
     "a AS (SELECT installation, min(logged_at) AS at FROM e WHERE text='name_7' GROUP BY 1), "
     "b AS (SELECT installation, max(logged_at) AS at FROM e WHERE text='name_8' GROUP BY 1) "
     "SELECT count(*), count(b.at) FROM a LEFT JOIN b ON b.installation=a.installation AND b.at>=a.at",
     at_most(1.2, 0.5)},
    {"retention", [](auto& reading, const auto& query) { reading.retention(query, {}); },
     "SELECT (first_seen/86400+3)/7, (logged_at/86400+3)/7, count(DISTINCT events.installation) FROM events JOIN "
     "installed "
     "USING(installation) WHERE logged_at>=?1 AND logged_at<?2 AND first_seen>=?1 AND first_seen<?2 GROUP BY 1, 2",
     at_most(1.2, 0.5)},
};

const Group panel_rows("collector: panels", [](Table& table) {
    const Folder folder;
    const std::string path = folder.file("panels.db");
    const char* millions = getenv("ANALYTICS_BENCH_MILLIONS");
    auto store = std::move(*store::open(path, {store::Opening::create, std::chrono::seconds(5)}));
    fill(*store, 10000 * (millions != nullptr ? atoi(millions) : 1));
    auto reading = std::move(*store->reading());
    store::Query query;
    query.from = collector_start() + 14 * g_day + 5 * 3600; // as a page asks: from the full hour
    query.to = query.from + 7 * g_day;
    sqlite3* raw = nullptr;
    sqlite3_open(path.c_str(), &raw);
    sqlite3_exec(raw, "PRAGMA cache_size=-8192", nullptr, nullptr, nullptr);
    for (const Panel& panel : panels) {
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(raw, panel.raw, -1, &statement, nullptr);
        sqlite3_bind_int64(statement, 1, query.from);
        sqlite3_bind_int64(statement, 2, query.to);
        auto ask_raw = [&] {
            while (sqlite3_step(statement) == SQLITE_ROW) {
            }
            sqlite3_reset(statement);
        };
        const Figures figures = compare_figures([&] { return 1e3 * seconds_of([&] { panel.ask(*reading, query); }); },
                                                [&] { return 1e3 * seconds_of(ask_raw); }, "ms", 3);
        table.row(std::string("panel: ") + panel.name, "the same from the raw table", figures, panel.limits);
        sqlite3_finalize(statement);
    }
    sqlite3_close(raw);
});

} // namespace
