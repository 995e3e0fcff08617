// A store on a cluster of nodes: what is written goes by the spool, questions go to the nodes.
#pragma once

#include "store/store.h"

namespace store::cluster {

/// See store::open. `serve` and `create` open the spool and ship what is in it; `use` asks and forgets, but takes no
/// uploads. Nodes that do not answer are waited for, but those that do must have the tables.
/// @return also FaultKind::in_use when another process has the spool
Result<std::unique_ptr<Store>> open(const std::string& address, const OpenOptions& options);

} // namespace store::cluster
