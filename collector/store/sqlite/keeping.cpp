// What a SQLite store throws away: what is too old, in small steps, and installations that are to be forgotten.
#include "schema.h"
#include "writing.h"

#include <thread>

#include <sqlite3.h>

namespace store::sqlite {

namespace {

constexpr int64_t g_most_deleted = 4096; // rows in a step
constexpr size_t g_telling_bytes = 8;    // an id of that length hardly stands anywhere by chance
constexpr std::chrono::milliseconds g_between_tries(20);

} // namespace

// Steps are transactions of their own, so uploads get between them.
Result<Progress> SqliteWriting::retain(const Retention& retention)
{
    Progress progress;
    if (begin()) {
        bool is_left = (retention.raw_before && retain_block(*retention.raw_before)) ||
                       (retention.raw_before && retain_rejects(*retention.raw_before)) ||
                       (retention.raw_before && retain_uploads(*retention.raw_before)) ||
                       (retention.rollups_before && retain_rollups(*retention.rollups_before));
        progress.done = static_cast<uint64_t>(sqlite3_total_changes64(m_database.handle()));
        progress.finished = !is_left;
    }
    if (!commit())
        return m_database.take_fault();
    return progress;
}

// Deletes the old rows of one block; false when no block has any.
bool SqliteWriting::retain_block(Milliseconds before)
{
    int64_t before_second = before / 1000 + (before % 1000 != 0);
    Statement find(m_database, "SELECT block FROM blocks WHERE first<? OR received<? LIMIT 1");
    if (!find.with(before_second, before).step())
        return false;
    int64_t block = find.integer(0), first = block << g_block_bits, last = first + (1 << g_block_bits) - 1;
    find.with(int64_t(0), int64_t(0)); // lets go of the table
    Statement remove(m_database, "DELETE FROM events WHERE id BETWEEN ?1 AND ?2 AND (logged_at<?3 OR "
                                 "(SELECT received_at FROM uploads WHERE id=events.upload)<?4)");
    remove.with(first, last, before_second, before).run();
    add_to_counter("events", -sqlite3_changes64(m_database.handle()));
    Statement span(m_database,
                   "SELECT min(logged_at), max(logged_at), min(received_at), count(*) FROM events JOIN uploads "
                   "ON uploads.id=events.upload WHERE events.id BETWEEN ? AND ?");
    Statement update(m_database, "UPDATE blocks SET first=?2, last=?3, received=?4 WHERE block=?1");
    Statement drop(m_database, "DELETE FROM blocks WHERE block=?");
    bool has_rows = span.with(first, last).step() && span.integer(3) != 0;
    if (has_rows)
        update.with(block, span.integer(0), span.integer(1), span.integer(2)).run();
    else
        drop.with(block).run();
    return true;
}

bool SqliteWriting::retain_rejects(Milliseconds before)
{
    Statement remove(m_database,
                     "DELETE FROM rejects WHERE id IN (SELECT id FROM rejects WHERE received_at<? LIMIT ?)");
    remove.with(before, g_most_deleted).run();
    int64_t count = sqlite3_changes64(m_database.handle());
    add_to_counter("rejects", -count);
    return count != 0;
}

// Uploads come in the order of their events, so those before the first event's have none left.
bool SqliteWriting::retain_uploads(Milliseconds before)
{
    Statement remove(
        m_database,
        "DELETE FROM uploads WHERE id IN (SELECT id FROM uploads WHERE received_at<?1 AND id<"
        "ifnull((SELECT upload FROM events ORDER BY id LIMIT 1), 9223372036854775807) ORDER BY id LIMIT ?2)");
    remove.with(before, g_most_deleted).run();
    return sqlite3_changes64(m_database.handle()) != 0;
}

bool SqliteWriting::retain_rollups(Milliseconds before)
{
    static const struct
    {
        const char* statement;
        bool by_hour;
    } tables[] = {
        {"DELETE FROM hours WHERE (hour, kind) IN (SELECT hour, kind FROM hours WHERE hour<? LIMIT ?)", true},
        {"DELETE FROM active_hours WHERE (hour, kind, chunk) IN (SELECT hour, kind, chunk FROM active_hours WHERE "
         "hour<? "
         "LIMIT ?)",
         true},
        {"DELETE FROM active_days WHERE (day, kind, chunk) IN (SELECT day, kind, chunk FROM active_days WHERE day<? "
         "LIMIT "
         "?)",
         false},
        {"DELETE FROM property_days WHERE (day, kind, property) IN (SELECT day, kind, property FROM property_days "
         "WHERE "
         "day<? LIMIT ?)",
         false},
        {"DELETE FROM fact_days WHERE (day, kind, property, value, chunk) IN (SELECT day, kind, property, value, chunk "
         "FROM fact_days WHERE day<? LIMIT ?)",
         false},
        {"DELETE FROM losses WHERE (hour, installation) IN (SELECT hour, installation FROM losses WHERE hour<? LIMIT "
         "?)",
         true},
        {"DELETE FROM batches WHERE batch IN (SELECT batch FROM batches WHERE seen<? LIMIT ?)", false},
        {"DELETE FROM ends WHERE installation IN (SELECT installation FROM ends WHERE seen<? LIMIT ?)", false},
    };
    for (const auto& table : tables) {
        Statement remove(m_database, table.statement);
        remove.with(table.by_hour ? hour_of(before / 1000) : day_of(before / 1000), g_most_deleted).run();
        if (sqlite3_changes64(m_database.handle()) != 0) {
            m_spRollups->clear(); // rows in memory may be among them
            return true;
        }
    }
    return false;
}

Result<uint64_t> SqliteWriting::forget(std::string_view installation, std::chrono::milliseconds wait)
{
    auto until = Clock::now() + wait;
    uint64_t removed = 0;
    if (begin()) {
        Statement find(m_database, "SELECT id FROM installations WHERE text=?");
        int64_t id = find.with(installation).step() ? find.integer(0) : 0;
        removed = forget_rows(id, installation);
        forget_memory();
    }
    if (!commit())
        return m_database.take_fault();
    // Pages that rows were moved out of may still show them, and so does the log.
    bool is_empty = empty_log(until);
    for (auto rebuild : {0, 1}) {
        if (installation.size() < g_telling_bytes || !is_empty || !m_database.ok() ||
            !m_database.file_holds(installation))
            break;
        rebuild == 0 ? rebuild_texts() : m_database.run("VACUUM");
        is_empty = empty_log(until);
    }
    if (!is_empty)
        m_database.fail(
            {FaultKind::busy, "Another process reads the store, so the deletion is not complete; repeat it."});
    if (!m_database.ok())
        return m_database.take_fault();
    return removed;
}

uint64_t SqliteWriting::forget_rows(int64_t id, std::string_view installation)
{
    int64_t removed = 0;
    auto remove = [&](const char* text, auto value, const char* counter) {
        Statement statement(m_database, text);
        statement.with(value).run();
        int64_t count = sqlite3_changes64(m_database.handle());
        if (counter == nullptr)
            return;
        add_to_counter(counter, -count);
        removed += count;
    };
    remove("DELETE FROM events WHERE installation=?", id, "events");
    remove("DELETE FROM rejects WHERE installation=?", id, "rejects");
    // Broken lines of it may have come from other senders, and hosts may have logged the id as a value. A short id may
    // be a part of anything, so it is looked for as lines have it.
    std::string quoted = '"' + std::string(installation) + '"';
    remove("DELETE FROM rejects WHERE instr(text, ?)<>0",
           installation.size() < g_telling_bytes ? std::string_view(quoted) : installation, "rejects");
    remove("UPDATE property_values SET text='(forgotten)' WHERE text=?", installation, nullptr);
    remove("DELETE FROM installed WHERE installation=?", id, nullptr);
    remove("DELETE FROM ends WHERE installation=?", id, nullptr);
    remove("DELETE FROM installations WHERE id=?", id, nullptr);
    return static_cast<uint64_t>(removed);
}

bool SqliteWriting::empty_log(Clock::time_point until)
{
    while (m_database.ok()) {
        if (m_database.truncate_log())
            return true;
        if (Clock::now() >= until)
            return false;
        m_spReaders->interrupt();
        std::this_thread::sleep_for(g_between_tries);
    }
    return false;
}

// The tables that hold ids as texts are copied and dropped: secure_delete overwrites every page of a dropped table.
void SqliteWriting::rebuild_texts()
{
    m_database.run(
        "BEGIN IMMEDIATE;"
        "CREATE TEMP TABLE kept AS SELECT * FROM installations;"
        "DELETE FROM installations; REINDEX installations; INSERT INTO installations SELECT * FROM temp.kept;"
        "DROP TABLE temp.kept;"
        "CREATE TEMP TABLE kept AS SELECT * FROM rejects;"
        "DELETE FROM rejects; REINDEX rejects; INSERT INTO rejects SELECT * FROM temp.kept;"
        "DROP TABLE temp.kept;");
    commit();
}

} // namespace store::sqlite
