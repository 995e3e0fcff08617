// analytics-collector cluster init: what is done with a cluster of nodes that keeps the events.
#include "cluster_words.h"
#include "commands.h"

#include "store/clickhouse/schema.h"

#include <iostream>

namespace commands {
namespace {

void init(const StoreWords& words)
{
    const auto done = store::clickhouse::prepare(
        layout_of(words), [](const std::string& sentence) { std::cout << sentence << std::endl; });
    if (!done)
        throw ClusterFailure(done.fault());
}

void add_command(CLI::App& cluster, int& status, const char* word, const char* sentence, void (*run)(const StoreWords&))
{
    const auto words = std::make_shared<StoreWords>();
    add_cluster_word(cluster, status, word, sentence, words, [words, run] {
        run(*words);
        return done;
    });
}

} // namespace

ClusterFailure::ClusterFailure(const store::Fault& fault)
    : std::runtime_error(fault.text),
      status(fault.kind == store::FaultKind::newer || fault.kind == store::FaultKind::foreign ? usage : failed)
{}

store::clickhouse::Layout layout_of(const StoreWords& words)
{
    auto layout = store::clickhouse::parse_address(words.store, cluster_options(words.cluster, words.secret));
    if (!layout)
        throw ClusterFailure({store::FaultKind::foreign, layout.fault().text});
    return std::move(*layout);
}

CLI::App* add_cluster_word(CLI::App& cluster, int& status, const char* word, const char* sentence,
                           const std::shared_ptr<StoreWords>& words, std::function<int()> run)
{
    CLI::App* command = cluster.add_subcommand(word, sentence);
    add_store_words(*command, *words);
    command->get_option("--store")->required();
    command->callback([run = std::move(run), &status] {
        try {
            status = run();
        } catch (const ClusterFailure& failure) {
            fail(failure.what());
            status = failure.status;
        }
    });
    return command;
}

void add_cluster_commands(CLI::App& program, int& status)
{
    CLI::App* cluster = program.add_subcommand("cluster", "What is done with a cluster that keeps the events.");
    cluster->require_subcommand(1);
    add_command(*cluster, status, "init", "Makes the tables on every node; may be repeated.", init);
    add_cluster_status(*cluster, status);
    add_cluster_check(*cluster, status);
    add_cluster_move(*cluster, status);
    add_cluster_rollup(*cluster, status);
}

} // namespace commands
