// The collector's own file of what the cluster is not yet known to keep: a SQLite database whose commits are on the
// disk when they return. Uploads go there first, in blocks; a block leaves when a check found all its rows on every
// replica.
//
// Blocks are blobs, not rows: a transaction costs what its bytes cost, however many lines there are. Any thread; one
// connection writes, one reads.
#pragma once

#include "known.h"

#include "store/sqlite/database.h"
#include "store/sqlite/file.h"

#include <mutex>

namespace store::spool {

/// What is known of a block without reading it.
struct BlockFacts
{
    int64_t id = 0; ///< in order of receipt
    Commit commit = 0;
    uint32_t shard = 0;
    Kind kind = Kind::events;
    uint32_t lines = 0;
    uint64_t bytes = 0;
    Milliseconds received_at = 0;
    int code = 0; ///< not 0: the engine refuses its one line, by this number
};

/// One transaction of the writer.
struct NewCommit
{
    struct Part
    {
        uint32_t shard;
        Kind kind;
        Block block;
    };
    Commit number = 0;
    Milliseconds received_at = 0;
    std::vector<Part> parts;
    std::vector<Entry> entries;
};

/// Since when all replicas have had all rows of some blocks, and when each of them was started by its own clock.
struct Checked
{
    std::string boot;  ///< of this machine: `since` means nothing after the next
    int64_t since = 0; ///< milliseconds since this machine was started
    std::vector<Seconds> starts;
};

/// Blocks that were shipped together.
struct KeptGroup
{
    std::vector<int64_t> blocks;
    Checked checked;
};

/// What a spool holds when it is opened.
struct Contents
{
    std::vector<BlockFacts> blocks;
    std::vector<KeptGroup> groups;
};

class Spool
{
public:
    /// Opens the file or makes it, and locks it as long as this lives.
    /// @param home  which cluster it is for: another one's spool is refused
    /// @param limit  bytes of blocks at which append() answers FaultKind::full
    static Result<std::shared_ptr<Spool>> open(const std::string& path, const std::string& home, uint64_t limit);

    /// 128 random bits, made with the file: which collector this is.
    const BatchId& collector() const { return m_collector; }
    const std::string& path() const { return m_path; }
    Contents contents() const;

    /// Takes what is new of an upload under the next commit's number. append() or give_up() ends that commit. One
    /// thread, the writer's, calls these four.
    Commit next_commit() const { return m_commit; }
    Known::Answer take(const Upload& upload, std::span<const clickhouse::Piece> pieces, NewCommit& commit);
    /// @return the blocks' facts, in the order of the parts; when it returns they are on the disk
    Result<std::vector<BlockFacts>> append(NewCommit& commit);
    void give_up(const NewCommit& commit);

    /// A block's texts; empty when the file does not give them.
    Block read(int64_t block);
    void keep(std::span<const KeptGroup> groups);
    /// The blocks leave.
    Result<Done> remove(std::span<const BlockFacts> blocks);
    /// Takes lines out of a block, each of which becomes a block of its own with its code.
    struct Refused
    {
        size_t line;
        int code;
        std::string sentence;
    };
    /// @return the block's facts without them
    Result<BlockFacts> put_aside(const BlockFacts& block, std::span<const Refused> lines);

    /// When a replica was started, as it said last; 0: it never did.
    Seconds start_of(const std::string& node);
    void set_start(const std::string& node, Seconds start);

    bool is_full() const { return m_bytes >= m_limit; }
    /// What the file says; what is on its way is the shippers' to tell.
    SpoolStatus status() const;

private:
    Spool(std::string path, uint64_t limit) : m_path(std::move(path)), m_limit(limit) {}
    std::optional<Fault> begin(const std::string& home);
    void load();
    std::optional<Fault> write(const std::function<void()>& statements);
    BlockFacts insert(const BlockFacts& facts, const Block& block, std::string_view sentence);

    const std::string m_path;
    const uint64_t m_limit;
    sqlite::Descriptor m_serving;
    BatchId m_collector{};
    Commit m_commit = 1;
    std::atomic<uint64_t> m_bytes{0}, m_blocks{0};

    mutable std::mutex m_read_lock;
    mutable sqlite::Database m_reading;
    std::mutex m_lock; ///< of the writing connection and of what follows
    sqlite::Database m_database;
    Known m_known;
    std::unordered_map<Commit, uint32_t> m_blocks_of; ///< how many blocks of a commit are left
};

/// The same of a spool that another process serves, or none.
Result<SpoolStatus> read_status(const std::string& path);

} // namespace store::spool
