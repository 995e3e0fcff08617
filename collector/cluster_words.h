/// @file
/// What the words of `analytics-collector cluster` share.
#pragma once

#include "settings.h"

#include "store/clickhouse/address.h"

#include <functional>
#include <memory>

namespace commands {

/// A sentence and the exit status that goes with it.
struct ClusterFailure : std::runtime_error
{
    explicit ClusterFailure(const store::Fault& fault);
    const int status;
};

/// The nodes that the options name. @throws ClusterFailure
store::clickhouse::Layout layout_of(const StoreWords& words);

/// Adds a word; `run` gives the exit status, or throws ClusterFailure.
CLI::App* add_cluster_word(CLI::App& cluster, int& status, const char* word, const char* sentence,
                           const std::shared_ptr<StoreWords>& words, std::function<int()> run);

void add_cluster_status(CLI::App& cluster, int& status);
void add_cluster_rollup(CLI::App& cluster, int& status);
void add_cluster_check(CLI::App& cluster, int& status);
void add_cluster_move(CLI::App& cluster, int& status);

} // namespace commands
