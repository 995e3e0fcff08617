// The side of a cluster that uploads go to: into the spool, and an answer when a replica has them too.
#pragma once

#include "collecting.h"

namespace store::spool {

class ClusterWriting : public Writing
{
public:
    ClusterWriting(std::shared_ptr<Collecting> collecting, Keeping keeping);
    ~ClusterWriting() override;

    /// Events and rejects of a receipt are those new in the spool: what left it before is stored once all the same.
    Result<std::vector<Receipt>> write(std::span<const Upload* const> uploads, const GroupLimit& limit) override;
    void settle(size_t upload, std::function<void(const std::optional<Fault>&)> done) override;
    void end_settling() override;
    std::optional<Fault> door() override;
    std::optional<Fault> door_for(const Upload& upload) override;
    Result<Progress> retain(const Retention& retention) override;
    Result<uint64_t> forget(std::string_view installation, std::chrono::milliseconds wait) override;

private:
    /// The transaction that is being made.
    struct Making
    {
        NewCommit commit;
        clickhouse::Taken taken;
        std::vector<size_t> parts; ///< by shard and table: 1 + the place among the commit's parts; 0: none yet
        std::vector<Need> needs;   ///< of the uploads so far
        uint64_t too_old = 0, forgotten = 0;
    };
    Making begin() const;
    Receipt take(const Upload& upload, Making& making);
    bool is_screened(const clickhouse::Piece& piece, Making& making) const;
    void add(const clickhouse::Piece& piece, Making& making) const;
    std::optional<Fault> commit(Making& making);
    bool is_probe(size_t door);

    std::shared_ptr<Collecting> m_spCollecting;
    Parts& m_parts;
    const Keeping m_keeping;
    std::vector<clickhouse::Piece> m_pieces; ///< of one upload
    std::vector<Need> m_needs;               ///< of the last write()
    /// The second in which an upload was let through a shut door: the common one, then each shard's.
    std::vector<std::atomic<int64_t>> m_probes;
};

} // namespace store::spool
