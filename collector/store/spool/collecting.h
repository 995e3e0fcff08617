// What a collector does for its cluster: spools uploads, ships them, checks them. Put together here.
#pragma once

#include "checker.h"
#include "settling.h"
#include "shipper.h"

namespace store::spool {

/// What of a store's writing is no upload. Empty functions: it cannot be done.
struct Keeping
{
    std::function<Result<Progress>(const Retention&)> retain;
    std::function<Result<uint64_t>(std::string_view installation, std::chrono::milliseconds wait)> forget;
};

class Collecting
{
public:
    /// Opens the spool and starts the threads. Asks no node: a cluster that is away is waited for.
    static Result<std::shared_ptr<Collecting>> start(std::shared_ptr<const clickhouse::Layout> layout,
                                                     const ClusterOptions& options, Screen screen = {},
                                                     WriteMarks write_marks = {});
    /// What is not shipped stays in the spool.
    ~Collecting();

    /// One at a time. It keeps this alive.
    static std::unique_ptr<Writing> writing(const std::shared_ptr<Collecting>& collecting, Keeping keeping = {});
    /// Waits until a replica has all that was written, at most `wait`; false when not.
    bool wait_until_shipped(std::chrono::milliseconds wait) const;
    /// Any thread; asks nobody.
    ClusterStatus status() const;

private:
    friend class ClusterWriting;
    Collecting(std::shared_ptr<const clickhouse::Layout> layout, const ClusterOptions& options, Screen screen,
               WriteMarks write_marks);
    void begin();
    /// Why nothing is taken; none while some shard takes its own.
    std::optional<Fault> door() const;
    std::optional<Fault> door(size_t shard) const;

    Parts m_parts;
    std::unique_ptr<Settling> m_spSettling;
    std::vector<std::unique_ptr<Checker>> m_checkers;
    std::vector<std::unique_ptr<Shipper>> m_shippers;
};

} // namespace store::spool
