/// @file
/// The state of a store on a cluster as JSON: a member of /api/health, and what `cluster status --json` prints of it.
#pragma once

#include "json.h"

#include "store/cluster_status.h"

namespace api {

std::string json_of(const store::SpoolStatus& spool);
/// {"spool":{...},"replicas":[...],"upkeep":null or a sentence,"shut":[sentences],"door":null or a sentence}
std::string json_of(const store::ClusterStatus& status);

} // namespace api
