// analytics-collector cluster init: what is done with a cluster of nodes that keeps the events.
#include "commands.h"
#include "settings.h"

#include "store/clickhouse/schema.h"

#include <iostream>
#include <memory>

namespace commands {
namespace {

/// A sentence and the exit status that goes with it.
struct Failure : std::runtime_error
{
    Failure(const store::Fault& fault) : std::runtime_error(fault.text), status(status_of(fault.kind)) {}
    static int status_of(store::FaultKind kind)
    {
        const bool is_wrong = kind == store::FaultKind::newer || kind == store::FaultKind::foreign;
        return is_wrong ? usage : failed;
    }
    const int status;
};

store::clickhouse::Layout layout_of(const StoreWords& words)
{
    auto layout = store::clickhouse::parse_address(words.store, cluster_options(words.cluster, words.secret));
    if (!layout)
        throw Failure({store::FaultKind::foreign, layout.fault().text});
    return std::move(*layout);
}

void init(const StoreWords& words)
{
    const auto done = store::clickhouse::prepare(
        layout_of(words), [](const std::string& sentence) { std::cout << sentence << std::endl; });
    if (!done)
        throw Failure(done.fault());
}

void add_command(CLI::App& cluster, int& status, const char* word, const char* sentence, void (*run)(const StoreWords&))
{
    const auto words = std::make_shared<StoreWords>();
    CLI::App* command = cluster.add_subcommand(word, sentence);
    add_store_words(*command, *words);
    command->get_option("--store")->required();
    command->callback([words, run, &status] {
        try {
            run(*words);
            status = done;
        } catch (const Failure& failure) {
            fail(failure.what());
            status = failure.status;
        }
    });
}

} // namespace

void add_cluster_commands(CLI::App& program, int& status)
{
    CLI::App* cluster = program.add_subcommand("cluster", "What is done with a cluster that keeps the events.");
    cluster->require_subcommand(1);
    add_command(*cluster, status, "init", "Makes the tables on every node; may be repeated.", init);
}

} // namespace commands
