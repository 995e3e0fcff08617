// A database of its own on the test's nodes: two shards of two replicas. It goes when the object goes.
#pragma once

#include "store/clickhouse/reading.h"
#include "store/upload.h"

namespace test {

class ClusterDatabase
{
public:
    /// @param replicas  of each shard; 1 or 2
    explicit ClusterDatabase(size_t replicas = 2);
    ~ClusterDatabase();
    ClusterDatabase(const ClusterDatabase&) = delete;
    ClusterDatabase& operator=(const ClusterDatabase&) = delete;

    const std::string& address() const { return m_address; }
    std::shared_ptr<const store::clickhouse::Layout> layout() const { return m_layout; }

    /// Sends rows straight to the first replica of their shards and waits for the second.
    void insert(const std::vector<store::Upload>& uploads);
    /// Runs a statement on every node.
    void run(const std::string& statement);
    /// Takes all rows out of it.
    void clear();
    /// Repetitions stay what they are: rows.
    void stop_merges();

private:
    std::string m_address;
    std::shared_ptr<store::clickhouse::Layout> m_layout;
};

} // namespace test
