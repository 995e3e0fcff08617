// The side of a SQLite store that writes.
#pragma once

#include "readers.h"
#include "remembered.h"

namespace store::sqlite {

class SqliteWriting : public Writing
{
public:
    /// @param readers  those of this process; they outlive it
    SqliteWriting(const std::string& path, std::chrono::milliseconds busy_wait, std::shared_ptr<Readers> readers);
    ~SqliteWriting() override;

    Result<std::vector<Receipt>> write(std::span<const Upload* const> uploads, const GroupLimit& limit) override;
    Result<std::vector<TextEnd>> ends(std::string_view sender) override;
    Result<Progress> retain(const Retention& retention) override;
    Result<uint64_t> forget(std::string_view installation, std::chrono::milliseconds wait) override;

private:
    /// The span of a block's rows, as the group changed it.
    struct Block
    {
        Seconds first, last;
        Milliseconds received;
    };
    /// When an installation was seen, as the group changed it.
    struct Seen
    {
        Seconds first, last;
        int64_t version;
    };

    bool begin();
    /// Commits, or gives everything up; what is in memory is then forgotten.
    bool commit();
    void forget_memory();

    Receipt take(const Upload& upload);
    void take_batch(const Upload& upload, Receipt& receipt);
    void take_text(const Upload& upload, Receipt& receipt);
    void add_line(const Upload& upload, const Line& line, uint32_t number, Receipt& receipt);
    void add_event(const Upload& upload, const Line& line, uint32_t number);
    void add_reject(const Upload& upload, const Line& line, uint32_t number);
    void flush();
    void add_to_counter(const char* name, int64_t amount);

    bool retain_block(Milliseconds before);
    bool retain_rejects(Milliseconds before);
    bool retain_uploads(Milliseconds before);
    bool retain_rollups(Milliseconds before);
    uint64_t forget_rows(int64_t id, std::string_view installation);
    bool empty_log(Clock::time_point until);
    void rebuild_texts();

    std::shared_ptr<Readers> m_spReaders;
    Database m_database;
    struct Statements;
    std::unique_ptr<Dictionary> m_spDictionary;
    std::unique_ptr<Rollups> m_spRollups;
    std::unique_ptr<Batches> m_spBatches;
    std::unique_ptr<Ends> m_spEnds;
    std::unique_ptr<Statements> m_spStatements;

    int64_t m_data_version = -1;
    int64_t m_next_event = 0; ///< 0: not read yet
    int64_t m_upload = 0;     ///< the row of the upload that is taken; 0: none yet
    std::map<int64_t, Block> m_blocks;
    std::map<std::pair<int64_t, int64_t>, Seen> m_seen;
    std::map<std::string, int64_t> m_counters;
};

} // namespace store::sqlite
