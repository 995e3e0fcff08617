// The rows of a store that is one file, as a cluster keeps them: with the keys that they came with, so that moving them
// twice makes no second row and a host's late repetition none either.
#pragma once

#include "store/clickhouse/rows.h"
#include "store/sqlite/database.h"

#include <simdjson.h>
#include <unordered_map>

namespace store::cluster {

/// How far the rows were read: ids of the file.
struct FilePlace
{
    int64_t event = 0, reject = 0;
};

/// One thread at a time.
class FileRows
{
public:
    /// @param path  a store that is there, of this program's schema
    FileRows(const std::string& path, size_t shards);
    ~FileRows();

    /// Appends at most `most` rows behind `place`, first all events, then all rejects, and moves `place` on.
    /// @return false when there was none
    bool next(size_t most, FilePlace& place, std::vector<clickhouse::Piece>& out);
    /// Lines that were told as dropped and did not come.
    std::vector<clickhouse::Piece> drops();
    /// The days and applications of all its events.
    std::vector<std::pair<clickhouse::Day, std::string>> days();
    /// Events and rejects in all.
    uint64_t rows();
    /// A number that the file counts by name ("uploads", "count_differs", "last_received_at").
    int64_t counter(const char* name);
    /// 128 bits that stand for this file, today and later.
    BatchId id();

    /// The first fault since the last call; then what was read is not to be used.
    std::optional<Fault> take_fault();

private:
    struct Statements;
    struct Kind
    {
        std::string application, version;
        std::optional<std::string> name;
    };
    struct From ///< what the rows of one request share
    {
        int64_t upload = 0;
        Milliseconds received_at = 0;
        std::optional<BatchId> batch;
    };

    bool next_events(size_t most, FilePlace& place, std::vector<clickhouse::Piece>& out);
    bool next_rejects(size_t most, FilePlace& place, std::vector<clickhouse::Piece>& out);
    void add_event(std::vector<clickhouse::Piece>& out);
    void add_reject(std::vector<clickhouse::Piece>& out);
    void read_members(std::string_view members, Event& event);
    void load_batches_of_rejects();
    const Kind& kind(int64_t id);
    const std::string& installation(int64_t id);
    const From& from(int64_t upload);
    BatchId batch_of_reject(std::string_view sender, Milliseconds received_at, uint32_t line, std::string_view text);

    const size_t m_shards;
    sqlite::Database m_database;
    std::unique_ptr<Statements> m_spStatements;
    std::unordered_map<int64_t, Kind> m_kinds;
    std::unordered_map<int64_t, std::string> m_installations;
    From m_from;
    std::unordered_multimap<Milliseconds, BatchId> m_batches; ///< of events that came together with rejects
    bool m_has_batches = false;
    simdjson::dom::parser m_parser;
    std::vector<Property> m_properties;
    std::string m_digits; ///< memory of the numbers among them
};

} // namespace store::cluster
