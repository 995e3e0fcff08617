// SQLite behind a few words: a connection that remembers its first fault, and statements that are prepared once.
//
// After a fault every statement of the connection is a step without rows until the fault is taken, so code that reads
// or writes a row goes straight on and whoever began the transaction asks once, at its end.
#pragma once

#include "store/result.h"
#include "store/store.h"

#include <map>
#include <memory>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace store::sqlite {

enum class Access
{
    read,
    write
};

class Database
{
public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Opens the file, which must be there.
    void open(const std::string& path, Access access, std::chrono::milliseconds busy_wait);

    /// Runs statements without values and without rows.
    void run(const char* statements);
    /// The number that a statement answers; 0 when it has no row.
    int64_t number(const char* statement);

    bool ok() const { return !m_fault; }
    /// The fault, which is forgotten by this; a fault must be there.
    Fault take_fault();
    /// Notes a fault that did not come from SQLite, unless there is one.
    void fail(Fault fault);

    /// The limit holds for statements until it is set anew. It must outlive them.
    void set_limit(const Limit& limit) { m_limit = limit; }
    /// A question's transaction: all its statements see the store as of one moment.
    void begin_question();
    void end_question();
    /// Ends the question under way, with FaultKind::interrupted. Any thread.
    void interrupt();
    /// Ends every statement that has rows left: one that is forgotten half-way holds on to what it saw.
    void end_statements();
    /// Moves the write-ahead log into the file and empties it; false when a reader or writer is in the way.
    bool truncate_log();

    /// Whether these bytes stand anywhere in the file; the write-ahead log is not looked at.
    bool file_holds(std::string_view bytes);

    sqlite3* handle() { return m_handle; }

private:
    friend class Statement;
    static int check_limit(void* self);
    void note(int code);

    sqlite3* m_handle = nullptr;
    std::optional<Fault> m_fault;
    Limit m_limit;
    std::atomic<bool> m_interrupted{false};
};

/// A prepared statement. Slices that it gives are good until its next step.
class Statement
{
public:
    Statement(Database& database, const char* text);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Begins anew with these values: integers, texts, blobs (as Blob), optionals of them.
    template <class... Values>
    Statement& with(const Values&... values)
    {
        reset();
        int at = 0;
        (bind(++at, values), ...);
        return *this;
    }
    /// The next row; false when there is none, or after a fault.
    bool step();
    /// Steps once and ends.
    void run();

    int64_t integer(int column);
    std::string_view text(int column); ///< blobs, too
    bool is_null(int column);

private:
    void reset();
    void bind(int at, int64_t value);
    void bind(int at, std::string_view value);
    void bind(int at, std::span<const unsigned char> blob);
    void bind_null(int at);
    template <class Value>
    void bind(int at, const std::optional<Value>& value)
    {
        value ? bind(at, *value) : bind_null(at);
    }

    Database& m_database;
    sqlite3_stmt* m_statement = nullptr;
};

/// A text as bytes to bind.
inline std::span<const unsigned char> blob(std::string_view bytes)
{
    return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

} // namespace store::sqlite
