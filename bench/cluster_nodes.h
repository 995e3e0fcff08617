// Nodes for the bench: two shards on this machine, which end with it, however it ends.
#pragma once

#include "session.h"
#include "table.h"

#include <memory>
#include <string>

namespace bench {

class ClusterNodes
{
public:
    /// Starts them in a folder of their own; null, with a line in the table that says so, where the engine is not
    /// installed.
    static std::unique_ptr<ClusterNodes> start(Table& table, int replicas = 2);
    ~ClusterNodes();

    /// The address of a new database with all its tables.
    std::string new_database();

private:
    ClusterNodes() = default;

    Folder m_folder;
    std::string m_address;
    int m_databases = 0;
};

} // namespace bench
