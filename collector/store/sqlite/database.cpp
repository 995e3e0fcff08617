#include "database.h"

#include <algorithm>

#include <sqlite3.h>

namespace store::sqlite {

namespace {

constexpr int g_steps_between_looks = 20000; // of SQLite's machine, between two looks at a limit: well below 1 ms

FaultKind kind_of(int code)
{
    static const struct
    {
        int code;
        FaultKind kind;
    } kinds[] = {
        {SQLITE_BUSY, FaultKind::busy},        {SQLITE_LOCKED, FaultKind::busy},
        {SQLITE_FULL, FaultKind::full},        {SQLITE_READONLY, FaultKind::read_only},
        {SQLITE_NOTADB, FaultKind::foreign},   {SQLITE_CORRUPT, FaultKind::foreign},
        {SQLITE_CANTOPEN, FaultKind::missing}, {SQLITE_PERM, FaultKind::read_only},
    };
    for (const auto& row : kinds) {
        if (row.code == (code & 0xff))
            return row.kind;
    }
    return FaultKind::other;
}

} // namespace

Database::~Database()
{
    sqlite3_close_v2(m_handle);
}

void Database::open(const std::string& path, Access access, std::chrono::milliseconds busy_wait)
{
    // A question's side opens for writing as well: readers of a write-ahead log make its index when it is not there.
    note(sqlite3_open_v2(path.c_str(), &m_handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr));
    sqlite3_extended_result_codes(m_handle, 1);
    sqlite3_busy_timeout(m_handle, static_cast<int>(busy_wait.count()));
    sqlite3_progress_handler(m_handle, g_steps_between_looks, check_limit, this);
    run(access == Access::read ? "PRAGMA query_only=1; PRAGMA cache_size=-8192; PRAGMA temp_store=memory"
                               : "PRAGMA synchronous=full; PRAGMA cache_size=-32768; PRAGMA temp_store=memory;"
                                 "PRAGMA secure_delete=on; PRAGMA journal_size_limit=67108864");
}

int Database::check_limit(void* self)
{
    const Database& database = *static_cast<Database*>(self);
    bool is_stopped = database.m_limit.stop != nullptr && *database.m_limit.stop;
    return database.m_interrupted || is_stopped || Clock::now() >= database.m_limit.until;
}

void Database::run(const char* statements)
{
    if (ok())
        note(sqlite3_exec(m_handle, statements, nullptr, nullptr, nullptr));
}

int64_t Database::number(const char* statement)
{
    Statement query(*this, statement);
    return query.step() ? query.integer(0) : 0;
}

Fault Database::take_fault()
{
    Fault fault = std::move(*m_fault);
    m_fault.reset();
    return fault;
}

void Database::fail(Fault fault)
{
    if (!m_fault)
        m_fault = std::move(fault);
}

void Database::begin_question()
{
    m_interrupted = false;
    run("BEGIN");
}

void Database::end_question()
{
    sqlite3_exec(m_handle, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Database::interrupt()
{
    m_interrupted = true;
}

void Database::end_statements()
{
    for (sqlite3_stmt* at = sqlite3_next_stmt(m_handle, nullptr); at != nullptr; at = sqlite3_next_stmt(m_handle, at))
        sqlite3_reset(at);
}

bool Database::truncate_log()
{
    int code = sqlite3_wal_checkpoint_v2(m_handle, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    if ((code & 0xff) != SQLITE_BUSY)
        note(code);
    return code == SQLITE_OK;
}

// Read through SQLite's own handle: to close another one would let go of its locks on the file (POSIX, fcntl).
bool Database::file_holds(std::string_view bytes)
{
    sqlite3_file* file = nullptr;
    sqlite3_int64 size = 0;
    note(sqlite3_file_control(m_handle, "main", SQLITE_FCNTL_FILE_POINTER, &file));
    if (!ok() || file->pMethods->xFileSize(file, &size) != SQLITE_OK)
        return false;
    std::string window;
    constexpr sqlite3_int64 piece = 1 << 20;
    for (sqlite3_int64 at = 0; at < size; at += piece) {
        size_t kept = window.size(), count = static_cast<size_t>(std::min(piece, size - at));
        window.resize(kept + count);
        note(file->pMethods->xRead(file, window.data() + kept, static_cast<int>(count), at));
        if (window.find(bytes) != std::string::npos)
            return true;
        window.erase(0, window.size() - std::min(window.size(), bytes.size()));
    }
    return false;
}

void Database::note(int code)
{
    if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE || m_fault)
        return;
    if (code == SQLITE_NOMEM)
        throw std::bad_alloc();
    if ((code & 0xff) != SQLITE_INTERRUPT)
        m_fault = Fault{kind_of(code), sqlite3_errmsg(m_handle)};
    else if (m_interrupted.exchange(false))
        m_fault = Fault{FaultKind::interrupted, "A deletion ended the question."};
    else
        m_fault = Fault{FaultKind::late, "The question took too long."};
}

Statement::Statement(Database& database, const char* text) : m_database(database)
{
    if (database.ok())
        database.note(
            sqlite3_prepare_v3(database.m_handle, text, -1, SQLITE_PREPARE_PERSISTENT, &m_statement, nullptr));
}

Statement::~Statement()
{
    sqlite3_finalize(m_statement);
}

bool Statement::step()
{
    if (!m_database.ok() || m_statement == nullptr)
        return false;
    int code = sqlite3_step(m_statement);
    m_database.note(code);
    if (code != SQLITE_ROW)
        sqlite3_reset(m_statement);
    return code == SQLITE_ROW;
}

void Statement::run()
{
    step();
    reset();
}

int64_t Statement::integer(int column)
{
    return sqlite3_column_int64(m_statement, column);
}

std::string_view Statement::text(int column)
{
    auto bytes = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    return {bytes, static_cast<size_t>(sqlite3_column_bytes(m_statement, column))};
}

bool Statement::is_null(int column)
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

void Statement::reset()
{
    sqlite3_reset(m_statement);
}

void Statement::bind(int at, int64_t value)
{
    sqlite3_bind_int64(m_statement, at, value);
}

// The values outlive the step: with() is called with what its caller holds.
void Statement::bind(int at, std::string_view value)
{
    sqlite3_bind_text(m_statement, at, value.data() == nullptr ? "" : value.data(), static_cast<int>(value.size()),
                      SQLITE_STATIC);
}

void Statement::bind(int at, std::span<const unsigned char> bytes)
{
    sqlite3_bind_blob(m_statement, at, bytes.data() == nullptr ? "" : reinterpret_cast<const char*>(bytes.data()),
                      static_cast<int>(bytes.size()), SQLITE_STATIC);
}

void Statement::bind_null(int at)
{
    sqlite3_bind_null(m_statement, at);
}

} // namespace store::sqlite
