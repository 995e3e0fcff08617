// The tables on the nodes: made, brought up to date and checked.
//
// Every statement goes to every node by itself. The keeper's paths and the replicas' names are written into it, so that
// nodes need no settings of their own for this.
#pragma once

#include "client.h"

namespace store::clickhouse {

/// Makes what is missing on every node and brings older schemas up to date. May be repeated; a node whose disk was lost
/// gets its tables back, and their rows from its peer.
/// @param say  one sentence for each node
/// @return FaultKind::newer when a later version made the schema, foreign when the address disagrees with what is there
Result<Done> prepare(const Layout& layout, const std::function<void(const std::string&)>& say);

/// Whether a cluster fits its address and this version. Nodes that cannot be reached are passed over: a collector
/// starts without them.
/// @return the faults of prepare(); missing when a node has no schema
Result<Done> check_schema(const Layout& layout);

} // namespace store::clickhouse
