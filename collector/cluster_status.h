/// @file
/// analytics-collector cluster status: how the nodes and this machine's spool are, for people and for programs.
#pragma once

#include "store/clickhouse/examination.h"
#include "store/cluster_status.h"

#include <optional>
#include <string>
#include <vector>

namespace commands {

struct ClusterReport
{
    std::vector<store::clickhouse::NodeReport> nodes;
    std::optional<store::SpoolStatus> spool; ///< none: this machine has none
    std::vector<std::string> findings;       ///< what is wrong, each with what to do
};

/// Adds what the spool says to the findings.
void judge_spool(ClusterReport& report, store::Milliseconds now);
std::string table_of(const ClusterReport& report);
std::string json_of(const ClusterReport& report);

} // namespace commands
