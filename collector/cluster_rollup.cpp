// analytics-collector cluster rollup: makes the figures of past days before a server's own thread comes to them.
#include "cluster_words.h"
#include "commands.h"

#include "api/json.h"
#include "store/clickhouse/upkeep.h"

#include <iostream>

namespace commands {
namespace {

struct Choice : StoreWords
{
    std::string from, to;
};

int rollup(const Choice& choice)
{
    // Without the options from the earliest to the last day that any time can mean.
    store::Seconds from = -(store::Seconds(1) << 38), to = store::Seconds(1) << 38;
    for (const auto& [text, time] : {std::pair{&choice.from, &from}, std::pair{&choice.to, &to}})
        if (!text->empty() && !api::read_time(*text, *time))
            throw ClusterFailure({store::FaultKind::foreign, "\"" + *text + "\" is no day such as 2026-11-21"});
    namespace cluster = store::clickhouse;
    const auto made = cluster::make_rollups(layout_of(choice), cluster::day_of(from + 86399), cluster::day_of(to),
                                            [](size_t shard, const cluster::Dated& day) {
                                                std::cout
                                                    << "shard " << shard + 1 << ": "
                                                    << api::iso_time(day.first * store::Seconds(86400)).substr(0, 10)
                                                    << " " << day.second << std::endl;
                                            });
    if (!made)
        throw ClusterFailure(made.fault());
    std::cout << *made << " rollups made\n";
    return done;
}

} // namespace

void add_cluster_rollup(CLI::App& cluster, int& status)
{
    const auto choice = std::make_shared<Choice>();
    CLI::App* command = add_cluster_word(cluster, status, "rollup", "Makes the figures of past days that are missing.",
                                         choice, [choice] { return rollup(*choice); });
    command->add_option("--from", choice->from, "first day, YYYY-MM-DD (UTC)");
    command->add_option("--to", choice->to, "the day after the last");
}

} // namespace commands
