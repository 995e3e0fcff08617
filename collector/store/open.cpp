#include "sqlite/sqlite_store.h"

namespace store {

bool is_file(const std::string& address)
{
    return address.compare(0, 13, "clickhouse://") != 0;
}

Result<std::unique_ptr<Store>> open(const std::string& address, const OpenOptions& options)
{
    if (is_file(address))
        return sqlite::open(address, options);
    return Fault{FaultKind::other, "This program was built without clusters."};
}

} // namespace store
