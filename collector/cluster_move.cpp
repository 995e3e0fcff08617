// analytics-collector cluster move: a store that is one file comes into the cluster.
#include "bar.h"
#include "cluster_words.h"
#include "commands.h"

#include "store/clickhouse/schema.h"
#include "store/cluster/move.h"

#include <iostream>

namespace commands {
namespace {

struct MoveWords
{
    StoreWords store;
    std::string from;
    bool from_the_start = false;
};

int move(const MoveWords& words)
{
    const auto layout = layout_of(words.store);
    if (const auto fits = store::clickhouse::check_schema(layout); !fits)
        throw ClusterFailure(fits.fault());
    store::cluster::MoveOptions options;
    options.group_lines = words.store.cluster.options.group_lines;
    options.from_the_start = words.from_the_start;
    Bar bar("move");
    const auto moved = store::cluster::move_file(words.from, layout, options, [&bar](const store::Progress& progress) {
        bar.show(progress.done, progress.total);
    });
    if (!moved)
        throw ClusterFailure({store::FaultKind::other, moved.fault().text});
    std::cout << "sent " << moved->rows << " events and rejected lines, " << moved->drops
              << " stretches of dropped ones, " << moved->uploads << " uploads\n";
    return done;
}

} // namespace

void add_cluster_move(CLI::App& cluster, int& status)
{
    const auto words = std::make_shared<MoveWords>();
    const std::shared_ptr<StoreWords> store(words, &words->store);
    CLI::App* command = add_cluster_word(cluster, status, "move", "Brings a store that is one file into the cluster.",
                                         store, [words] { return move(*words); });
    command->add_option("--from", words->from, "the file; it is only read")->required();
    command->add_flag("--from-the-start", words->from_the_start, "sends again what an earlier move sent");
}

} // namespace commands
