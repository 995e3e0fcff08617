#include "spool.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <openssl/rand.h>
#include <sqlite3.h>

namespace store::spool {

using sqlite::Access;
using sqlite::blob;
using sqlite::Statement;

namespace {

constexpr int g_schema = 1;
constexpr uint64_t g_entry_bytes = 128; // what one takes in memory, about
constexpr std::chrono::seconds g_busy_wait(5);

// Small columns first: the blobs behind them are read only when they are asked for.
const char* const g_tables = R"(
    PRAGMA page_size=16384; PRAGMA journal_mode=wal; BEGIN IMMEDIATE;
    CREATE TABLE IF NOT EXISTS facts(name TEXT PRIMARY KEY, value) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS commits(number INTEGER PRIMARY KEY, received_at INTEGER NOT NULL, entries BLOB NOT NULL);
    CREATE TABLE IF NOT EXISTS blocks(id INTEGER PRIMARY KEY AUTOINCREMENT, in_commit INTEGER NOT NULL,
        shard INTEGER NOT NULL, kind INTEGER NOT NULL, lines INTEGER NOT NULL, received_at INTEGER NOT NULL,
        code INTEGER NOT NULL, sentence TEXT NOT NULL, line_index BLOB NOT NULL, line_rows BLOB NOT NULL);
    CREATE INDEX IF NOT EXISTS aside ON blocks(id) WHERE code!=0;
    CREATE TABLE IF NOT EXISTS kept(block INTEGER PRIMARY KEY, head INTEGER NOT NULL, since INTEGER NOT NULL,
        boot TEXT NOT NULL, starts TEXT NOT NULL);
    CREATE TABLE IF NOT EXISTS starts(node TEXT PRIMARY KEY, start INTEGER NOT NULL) WITHOUT ROWID;
    COMMIT;
)";

std::string_view bytes_of(std::span<const Entry> entries)
{
    return {reinterpret_cast<const char*>(entries.data()), entries.size_bytes()};
}

std::vector<Entry> entries_of(std::string_view bytes)
{
    std::vector<Entry> entries(bytes.size() / sizeof(Entry));
    if (!entries.empty()) // memcpy takes no null pointer, not even for no bytes
        memcpy(static_cast<void*>(entries.data()), bytes.data(), entries.size() * sizeof(Entry));
    return entries;
}

std::string joined(std::span<const Seconds> numbers)
{
    std::string text;
    for (const Seconds number : numbers)
        text += (text.empty() ? "" : ",") + std::to_string(number);
    return text;
}

std::vector<Seconds> numbers_of(std::string_view text)
{
    std::vector<Seconds> numbers;
    for (const char *at = text.data(), *end = at + text.size(); at < end; ++at) {
        Seconds number = 0;
        at = std::from_chars(at, end, number).ptr;
        numbers.push_back(number);
    }
    return numbers;
}

BlockFacts facts_of(Statement& row)
{
    BlockFacts facts;
    facts.id = row.integer(0);
    facts.commit = static_cast<Commit>(row.integer(1));
    facts.shard = static_cast<uint32_t>(row.integer(2));
    facts.kind = static_cast<Kind>(row.integer(3));
    facts.lines = static_cast<uint32_t>(row.integer(4));
    facts.received_at = row.integer(5);
    facts.code = static_cast<int>(row.integer(6));
    facts.bytes = static_cast<uint64_t>(row.integer(7));
    return facts;
}

void read_status(sqlite::Database& database, SpoolStatus& status)
{
    status.oldest_kept = database.number("SELECT received_at FROM blocks ORDER BY id LIMIT 1");
    status.lines_aside = static_cast<uint64_t>(database.number("SELECT count(*) FROM blocks WHERE code!=0"));
    Statement aside(database,
                    "SELECT kind, code, sentence, received_at FROM blocks WHERE code!=0 ORDER BY id LIMIT 20");
    while (aside.step())
        status.aside.push_back({clickhouse::facts(static_cast<Kind>(aside.integer(0))).name,
                                static_cast<int>(aside.integer(1)), std::string(aside.text(2)), aside.integer(3)});
}

} // namespace

Result<std::shared_ptr<Spool>> Spool::open(const std::string& path, const std::string& home, uint64_t limit)
{
    std::error_code none;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), none); // what fails is told below
    std::shared_ptr<Spool> spool(new Spool(path, limit));
    if (auto fault = spool->begin(home))
        return *fault;
    return spool;
}

std::optional<Fault> Spool::begin(const std::string& home)
{
    if (auto fault = sqlite::find_file(m_path, true))
        return fault;
    auto locked = sqlite::lock_serving(m_path);
    if (!locked)
        return Fault{locked.fault().kind, "The spool " + m_path + ": " + locked.fault().text};
    m_serving = std::move(*locked);
    m_database.open(m_path, Access::write, g_busy_wait);
    // Deliberate: freed pages are not cleared here. They are written anew within minutes, and clearing them would
    // write every byte of the spool once more.
    m_database.run("PRAGMA secure_delete=off; PRAGMA temp_store=memory");
    m_database.run(g_tables);
    Statement add(m_database, "INSERT INTO facts VALUES(?, ?) ON CONFLICT DO NOTHING");
    RAND_bytes(m_collector.data(), static_cast<int>(m_collector.size()));
    add.with(std::string_view("schema"), int64_t(g_schema)).run();
    add.with(std::string_view("home"), std::string_view(home)).run();
    add.with(std::string_view("collector"), std::span<const unsigned char>(m_collector)).run();
    Statement facts(m_database, "SELECT (SELECT value FROM facts WHERE name='schema'), (SELECT value FROM facts WHERE "
                                "name='home'), (SELECT value FROM facts WHERE name='collector')");
    if (facts.with().step()) {
        if (facts.integer(0) > g_schema)
            m_database.fail({FaultKind::newer, "The spool " + m_path + " was made by a later version."});
        if (facts.text(1) != home)
            m_database.fail({FaultKind::foreign,
                             "The spool " + m_path + " belongs to the cluster " + std::string(facts.text(1)) + "."});
        if (facts.text(2).size() == m_collector.size())
            memcpy(m_collector.data(), facts.text(2).data(), m_collector.size());
    }
    m_reading.open(m_path, Access::read, g_busy_wait);
    load();
    if (!m_database.ok())
        return m_database.take_fault();
    return m_reading.ok() ? std::nullopt : std::optional(m_reading.take_fault());
}

void Spool::load()
{
    Statement commits(m_database, "SELECT number, entries FROM commits");
    while (commits.step()) {
        for (const Entry& entry : entries_of(commits.text(1))) {
            m_known.add(entry, static_cast<Commit>(commits.integer(0)));
            m_bytes += g_entry_bytes;
        }
    }
    for (const BlockFacts& block : contents().blocks) {
        ++m_blocks_of[block.commit];
        ++m_blocks;
        m_bytes += block.bytes;
    }
    // Numbers are never used again: a row of `uploads` is told by its collector and the commit's number.
    m_commit = static_cast<Commit>(m_database.number("SELECT value FROM facts WHERE name='commit'")) + 1;
}

Contents Spool::contents() const
{
    std::lock_guard hold(m_read_lock);
    Contents contents;
    Statement blocks(m_reading, "SELECT id, in_commit, shard, kind, lines, received_at, code, length(line_index) + "
                                "length(line_rows) FROM blocks ORDER BY id");
    while (blocks.step())
        contents.blocks.push_back(facts_of(blocks));
    Statement kept(m_reading, "SELECT block, head, since, boot, starts FROM kept ORDER BY head, block");
    int64_t head = 0;
    while (kept.step()) {
        if (kept.integer(1) != head)
            contents.groups.push_back({{}, {std::string(kept.text(3)), kept.integer(2), numbers_of(kept.text(4))}});
        head = kept.integer(1);
        contents.groups.back().blocks.push_back(kept.integer(0));
    }
    return contents;
}

std::optional<Fault> Spool::write(const std::function<void()>& statements)
{
    m_database.run("BEGIN IMMEDIATE");
    statements();
    m_database.end_statements();
    m_database.run("COMMIT");
    if (m_database.ok())
        return std::nullopt;
    sqlite3_exec(m_database.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    return m_database.take_fault();
}

Known::Answer Spool::take(const Upload& upload, std::span<const clickhouse::Piece> pieces, NewCommit& commit)
{
    std::lock_guard hold(m_lock);
    commit.number = m_commit;
    return m_known.take(upload, pieces, commit.number, commit.entries);
}

void Spool::give_up(const NewCommit& commit)
{
    std::lock_guard hold(m_lock);
    m_known.remove(commit.entries);
}

BlockFacts Spool::insert(const BlockFacts& facts, const Block& block, std::string_view sentence)
{
    Statement add(m_database, "INSERT INTO blocks(in_commit, shard, kind, lines, received_at, code, sentence, "
                              "line_index, line_rows) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)");
    add.with(static_cast<int64_t>(facts.commit), int64_t(facts.shard), static_cast<int64_t>(facts.kind),
             int64_t(block.lines), facts.received_at, int64_t(facts.code), sentence, blob(block.index),
             blob(block.rows))
        .run();
    BlockFacts made = facts;
    made.id = sqlite3_last_insert_rowid(m_database.handle());
    made.lines = block.lines;
    made.bytes = block.index.size() + block.rows.size();
    return made;
}

Result<std::vector<BlockFacts>> Spool::append(NewCommit& commit)
{
    if (is_full())
        return Fault{FaultKind::full, "The spool has reached its limit."};
    std::lock_guard hold(m_lock);
    std::vector<BlockFacts> blocks;
    const auto fault = write([&] {
        Statement add(m_database, "INSERT INTO commits VALUES(?, ?, ?)");
        Statement count(m_database, "INSERT INTO facts VALUES('commit', ?1) ON CONFLICT DO UPDATE SET value=?1");
        const auto number = static_cast<int64_t>(commit.number);
        add.with(number, commit.received_at, blob(bytes_of(commit.entries))).run();
        count.with(number).run();
        for (const NewCommit::Part& part : commit.parts)
            blocks.push_back(
                insert({0, commit.number, part.shard, part.kind, 0, 0, commit.received_at, 0}, part.block, ""));
    });
    if (fault)
        return *fault;
    ++m_commit;
    m_bytes += commit.entries.size() * g_entry_bytes;
    for (const BlockFacts& block : blocks)
        m_bytes += block.bytes;
    m_blocks += blocks.size();
    m_blocks_of[commit.number] = static_cast<uint32_t>(blocks.size());
    return blocks;
}

Block Spool::read(int64_t block)
{
    std::lock_guard hold(m_read_lock);
    Statement row(m_reading, "SELECT lines, line_index, line_rows FROM blocks WHERE id=?");
    if (row.with(block).step())
        return {static_cast<uint32_t>(row.integer(0)), std::string(row.text(1)), std::string(row.text(2))};
    if (!m_reading.ok())
        m_reading.take_fault();
    return {};
}

void Spool::keep(std::span<const KeptGroup> groups)
{
    std::lock_guard hold(m_lock);
    // What fails here is asked of the replicas once more after a start, so the fault is let go.
    write([&] {
        Statement add(m_database, "INSERT OR REPLACE INTO kept VALUES(?, ?, ?, ?, ?)");
        for (const KeptGroup& group : groups) {
            const std::string starts = joined(group.checked.starts);
            for (const int64_t block : group.blocks)
                add.with(block, group.blocks.front(), group.checked.since, std::string_view(group.checked.boot),
                         std::string_view(starts))
                    .run();
        }
    });
}

Result<Done> Spool::remove(std::span<const BlockFacts> blocks)
{
    std::lock_guard hold(m_lock);
    std::unordered_map<Commit, uint32_t> left;
    std::vector<Entry> forgotten;
    const auto fault = write([&] {
        Statement drop(m_database, "DELETE FROM blocks WHERE id=?"), let(m_database, "DELETE FROM kept WHERE block=?");
        Statement entries(m_database, "SELECT entries FROM commits WHERE number=?");
        Statement end(m_database, "DELETE FROM commits WHERE number=?");
        for (const BlockFacts& block : blocks) {
            drop.with(block.id).run();
            let.with(block.id).run();
            const auto number = static_cast<int64_t>(block.commit);
            uint32_t& rest = left.try_emplace(block.commit, m_blocks_of[block.commit]).first->second;
            if (--rest != 0 || !entries.with(number).step())
                continue;
            const auto gone = entries_of(entries.text(0));
            forgotten.insert(forgotten.end(), gone.begin(), gone.end());
            end.with(number).run();
        }
    });
    if (fault)
        return *fault;
    for (const auto& [commit, rest] : left)
        rest == 0 ? void(m_blocks_of.erase(commit)) : void(m_blocks_of[commit] = rest);
    m_known.remove(forgotten);
    m_bytes -= forgotten.size() * g_entry_bytes;
    for (const BlockFacts& block : blocks)
        m_bytes -= block.bytes;
    m_blocks -= blocks.size();
    return Done();
}

Result<BlockFacts> Spool::put_aside(const BlockFacts& block, std::span<const Refused> lines)
{
    const Block whole = read(block.id);
    const std::vector<Row> rows = whole.read();
    Block rest;
    std::vector<BlockFacts> made;
    std::lock_guard hold(m_lock);
    const auto fault = write([&] {
        for (size_t i = 0; i < rows.size(); ++i) {
            const auto refused =
                std::find_if(lines.begin(), lines.end(), [i](const Refused& line) { return line.line == i; });
            Block one;
            (refused == lines.end() ? rest : one).add(rows[i]);
            if (refused == lines.end())
                continue;
            BlockFacts facts = block;
            facts.code = refused->code;
            made.push_back(insert(facts, one, refused->sentence));
        }
        // The block stays, even without a line: whoever ships it holds its facts.
        Statement(m_database, "UPDATE blocks SET lines=?2, line_index=?3, line_rows=?4, code=0 WHERE id=?1")
            .with(block.id, int64_t(rest.lines), blob(rest.index), blob(rest.rows))
            .run();
    });
    if (fault)
        return *fault;
    m_blocks_of[block.commit] += static_cast<uint32_t>(made.size());
    m_blocks += made.size();
    BlockFacts left = block;
    left.lines = rest.lines;
    left.bytes = rest.index.size() + rest.rows.size();
    left.code = 0;
    return left; // all bytes are there still, in other blocks
}

Seconds Spool::start_of(const std::string& node)
{
    std::lock_guard hold(m_read_lock);
    Statement row(m_reading, "SELECT start FROM starts WHERE node=?");
    return row.with(std::string_view(node)).step() ? row.integer(0) : 0;
}

void Spool::set_start(const std::string& node, Seconds start)
{
    std::lock_guard hold(m_lock);
    write([&] {
        Statement(m_database, "INSERT OR REPLACE INTO starts VALUES(?, ?)").with(std::string_view(node), start).run();
    });
}

SpoolStatus Spool::status() const
{
    std::lock_guard hold(m_read_lock);
    SpoolStatus status;
    status.file = m_path;
    status.limit = m_limit;
    status.bytes = m_bytes;
    status.is_full = is_full();
    read_status(m_reading, status);
    if (!m_reading.ok())
        m_reading.take_fault();
    return status;
}

Result<SpoolStatus> read_status(const std::string& path)
{
    if (auto fault = sqlite::find_file(path, false))
        return *fault;
    sqlite::Database database;
    database.open(path, Access::read, g_busy_wait);
    SpoolStatus status;
    status.file = path;
    status.bytes =
        static_cast<uint64_t>(database.number("SELECT total(length(line_index) + length(line_rows)) FROM blocks") +
                              database.number("SELECT total(length(entries)) FROM commits") /
                                  static_cast<int64_t>(sizeof(Entry)) * static_cast<int64_t>(g_entry_bytes));
    read_status(database, status);
    status.blocks_waiting = static_cast<uint64_t>(
        database.number("SELECT count(*) FROM blocks WHERE code=0 AND id NOT IN (SELECT block FROM kept)"));
    status.groups_unchecked = static_cast<uint64_t>(database.number("SELECT count(DISTINCT head) FROM kept"));
    return database.ok() ? Result<SpoolStatus>(status) : database.take_fault();
}

} // namespace store::spool
