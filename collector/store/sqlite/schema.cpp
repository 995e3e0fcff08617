#include "schema.h"

namespace store::sqlite {

namespace {

constexpr int64_t g_application = 0x616e6c79; // SQLite's mark of whose file it is

// Ids are AUTOINCREMENT where something outlives the row that they name: the id of an installation that was removed
// stays in the sets of past days, and must never become another one's.
//
// names -1 stands for all names together, 0 for the null name. `counted` is the kind that rollups count it as.
// A block is 4,096 ids of events, with what it takes to pass over it: the span of logged_at and the earliest receipt.
// `bits`, `stored`, `told`, `list` and `counts` are explained in packed.h.
const char* const g_version_1 = R"(
    CREATE TABLE texts(id INTEGER PRIMARY KEY AUTOINCREMENT, text TEXT NOT NULL UNIQUE);
    CREATE TABLE installations(id INTEGER PRIMARY KEY AUTOINCREMENT, text TEXT NOT NULL UNIQUE);
    CREATE TABLE kinds(id INTEGER PRIMARY KEY AUTOINCREMENT, application INTEGER NOT NULL, version INTEGER NOT NULL,
                       name INTEGER NOT NULL, counted INTEGER NOT NULL, UNIQUE(application, version, name));
    CREATE TABLE uploads(id INTEGER PRIMARY KEY AUTOINCREMENT, received_at INTEGER NOT NULL, batch BLOB);
    CREATE TABLE events(id INTEGER PRIMARY KEY, upload INTEGER NOT NULL, line INTEGER NOT NULL,
                        installation INTEGER NOT NULL, kind INTEGER NOT NULL, logged_at INTEGER NOT NULL, key INTEGER,
                        members TEXT NOT NULL);
    CREATE INDEX events_of_installation ON events(installation, logged_at);
    CREATE TABLE blocks(block INTEGER PRIMARY KEY, first INTEGER NOT NULL, last INTEGER NOT NULL,
                        received INTEGER NOT NULL);
    CREATE TABLE rejects(id INTEGER PRIMARY KEY AUTOINCREMENT, received_at INTEGER NOT NULL,
                         installation INTEGER NOT NULL, line INTEGER NOT NULL, key INTEGER, reason TEXT NOT NULL,
                         text TEXT NOT NULL);
    CREATE INDEX rejects_received ON rejects(received_at);
    CREATE TABLE installed(installation INTEGER, application INTEGER, first_seen INTEGER NOT NULL,
                           last_seen INTEGER NOT NULL, version INTEGER NOT NULL,
                           PRIMARY KEY(installation, application)) WITHOUT ROWID;
    CREATE TABLE hours(hour INTEGER, kind INTEGER, events INTEGER NOT NULL, PRIMARY KEY(hour, kind)) WITHOUT ROWID;
    CREATE TABLE active_hours(hour INTEGER, kind INTEGER, chunk INTEGER, bits BLOB NOT NULL,
                              PRIMARY KEY(hour, kind, chunk)) WITHOUT ROWID;
    CREATE TABLE active_days(day INTEGER, kind INTEGER, chunk INTEGER, bits BLOB NOT NULL,
                             PRIMARY KEY(day, kind, chunk)) WITHOUT ROWID;
    CREATE TABLE properties(id INTEGER PRIMARY KEY AUTOINCREMENT, application INTEGER NOT NULL, name INTEGER NOT NULL,
                            key TEXT, keys INTEGER NOT NULL DEFAULT 0, UNIQUE(application, name, key));
    CREATE TABLE property_values(property INTEGER, number INTEGER, type INTEGER NOT NULL, text TEXT NOT NULL,
                                 PRIMARY KEY(property, number)) WITHOUT ROWID;
    CREATE TABLE property_days(day INTEGER, kind INTEGER, property INTEGER, counts BLOB NOT NULL,
                               PRIMARY KEY(day, kind, property)) WITHOUT ROWID;
    CREATE TABLE fact_days(day INTEGER, kind INTEGER, property INTEGER, value INTEGER, chunk INTEGER, bits BLOB NOT NULL,
                           PRIMARY KEY(day, kind, property, value, chunk)) WITHOUT ROWID;
    CREATE TABLE losses(hour INTEGER, installation INTEGER, rejects INTEGER NOT NULL, dropped INTEGER NOT NULL,
                        PRIMARY KEY(hour, installation)) WITHOUT ROWID;
    CREATE TABLE batches(batch BLOB PRIMARY KEY, seen INTEGER NOT NULL, stored BLOB NOT NULL, told BLOB NOT NULL)
        WITHOUT ROWID;
    CREATE TABLE ends(installation INTEGER PRIMARY KEY, seen INTEGER NOT NULL, list BLOB NOT NULL);
    CREATE TABLE counters(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
)";

const char* const g_steps[] = {g_version_1};
static_assert(std::size(g_steps) == g_schema);

int64_t version_of(Database& database, size_t newest)
{
    int64_t version = database.number("PRAGMA user_version");
    int64_t application = database.number("PRAGMA application_id");
    bool is_empty = database.number("SELECT count(*) FROM sqlite_master") == 0;
    if (application != g_application && !is_empty)
        database.fail({FaultKind::foreign, "The file is a database of another program."});
    if (version > static_cast<int64_t>(newest))
        database.fail({FaultKind::newer, "The store was made by a later version of this program (schema " +
                                             std::to_string(version) + ")."});
    return version;
}

} // namespace

void migrate(Database& database)
{
    migrate(database, g_steps);
}

void migrate(Database& database, std::span<const char* const> steps)
{
    const auto newest = static_cast<int64_t>(steps.size());
    if (version_of(database, steps.size()) == newest || !database.ok())
        return;
    database.run("PRAGMA page_size=8192; PRAGMA journal_mode=wal; BEGIN IMMEDIATE");
    for (int64_t version = version_of(database, steps.size()); database.ok() && version < newest; ++version)
        database.run(steps[static_cast<size_t>(version)]);
    std::string marks = "PRAGMA application_id=" + std::to_string(g_application) +
                        "; PRAGMA user_version=" + std::to_string(newest) + "; COMMIT";
    database.run(marks.c_str());
}

void check_schema(Database& database)
{
    if (version_of(database, g_schema) < g_schema)
        database.fail({FaultKind::other, "The store is of an older version; serve it once to bring it up to date."});
}

} // namespace store::sqlite
