#include "cluster_nodes.h"

#include "store/clickhouse/schema.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace bench {

std::unique_ptr<ClusterNodes> ClusterNodes::start(Table& table, int replicas)
{
    if (std::system("PATH=$PATH:/usr/sbin; command -v clickhouse-server >/dev/null") != 0) {
        table.note("cluster: not measured", "clickhouse-server is not installed");
        return nullptr;
    }
    std::unique_ptr<ClusterNodes> nodes(new ClusterNodes);
    const std::string folder = nodes->m_folder.file("nodes");
    const std::string words =
        " start --replicas " + std::to_string(replicas) + " --with " + std::to_string(getpid()) + " '";
    if (std::system((BENCH_NODES + words + folder + "' >/dev/null").c_str()) != 0)
        throw std::runtime_error("the nodes of the cluster do not start");
    std::getline(std::ifstream(folder + "/address"), nodes->m_address);
    return nodes;
}

ClusterNodes::~ClusterNodes()
{
    if (std::system((BENCH_NODES " stop '" + m_folder.file("nodes") + "'").c_str()) != 0)
        std::fputs("the nodes of the cluster did not end\n", stderr);
}

std::string ClusterNodes::new_database()
{
    const std::string address = m_address + "/bench" + std::to_string(++m_databases);
    const auto layout = store::clickhouse::parse_address(address, {});
    if (!layout || !store::clickhouse::prepare(*layout, [](const std::string&) {}))
        throw std::runtime_error("no tables on the cluster");
    return address;
}

} // namespace bench
