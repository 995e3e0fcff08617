// Where a cluster's nodes are, as one address says it:
//
//     clickhouse://USER@HOST:PORT,HOST:PORT+HOST:PORT,HOST:PORT/DATABASE
//
// Shards are divided by "+", the replicas of one by ",". The user is `default`, a port 8123 and the database
// `analytics` where they are left out. A host by number of IPv6 stands in brackets.
#pragma once

#include "store/store.h"

namespace store::clickhouse {

struct Node
{
    std::string host;
    uint16_t port = 8123;

    /// "host:port": also the replica's name in the cluster's own records.
    std::string name() const;
};

struct Layout
{
    std::vector<std::vector<Node>> shards; ///< their replicas
    std::string user, password, database;
    std::string ca_file; ///< when it is set, nodes are asked by TLS
    std::string secret;  ///< ClusterOptions::secret
};

/// Whether an address means a cluster at all.
bool is_cluster(std::string_view address);

/// Reads the address, and the file of the password that the options name.
/// @return FaultKind::other with a sentence for whoever wrote the address
Result<Layout> parse_address(std::string_view address, const ClusterOptions& options);

/// The shard that keeps all rows of an installation. Must never change: rows stay where they are.
uint32_t shard_of(std::string_view installation, size_t shards);

} // namespace store::clickhouse
