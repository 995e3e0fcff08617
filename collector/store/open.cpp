#include "sqlite/sqlite_store.h"

#ifdef ANALYTICS_COLLECTOR_CLUSTER
#include "cluster/cluster_store.h"
#endif

namespace store {

bool is_file(const std::string& address)
{
    return address.compare(0, 13, "clickhouse://") != 0;
}

Result<std::unique_ptr<Store>> open(const std::string& address, const OpenOptions& options)
{
    if (is_file(address))
        return sqlite::open(address, options);
#ifdef ANALYTICS_COLLECTOR_CLUSTER
    return cluster::open(address, options);
#else
    return Fault{FaultKind::other, "This program was built without clusters."};
#endif
}

} // namespace store
