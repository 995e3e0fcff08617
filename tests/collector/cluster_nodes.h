// Nodes of a test's own, which it may kill: one shard of two replicas and ZooKeeper, in a scratch folder.
#pragma once

#include "store/clickhouse/schema.h"
#include "support/child.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

namespace test {

class ClusterNodes
{
public:
    explicit ClusterNodes(int shards = 1)
    {
        tell({"start", "--shards", std::to_string(shards), "--for", "300", m_folder.path()});
        m_address = support::read_file(m_folder.file("address"));
        m_address = m_address.substr(0, m_address.find('\n')) + "/test";
    }
    ~ClusterNodes() { tell({"stop", m_folder.path()}); }

    /// kill, stop-node or run; zookeeper, s1r1, s1r2 ...
    void tell(const std::string& word, const std::string& node) { tell({word, m_folder.path(), node}); }
    const std::string& address() const { return m_address; }
    std::string file(const std::string& name) const { return m_folder.file(name); }

private:
    static void tell(std::vector<std::string> words)
    {
        words.insert(words.begin(), TEST_NODES);
        support::Child child(words);
        EXPECT_TRUE(child.wait(std::chrono::seconds(60))) << words[1];
        EXPECT_EQ(child.status(), 0) << words[1];
    }

    support::ScratchFolder m_folder;
    std::string m_address;
};

} // namespace test
