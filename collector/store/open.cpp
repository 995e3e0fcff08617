#include "sqlite/sqlite_store.h"

namespace store {

Result<std::unique_ptr<Store>> open(const std::string& address, const OpenOptions& options)
{
    return sqlite::open(address, options);
}

} // namespace store
