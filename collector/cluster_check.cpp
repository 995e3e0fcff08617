// analytics-collector cluster check: whether the replicas have the same, and rollups tell what the rows say.
#include "bar.h"
#include "cluster_words.h"
#include "commands.h"

#include "api/json.h"
#include "store/clickhouse/comparison.h"
#include "store/clickhouse/keeping.h"

#include <iostream>

namespace commands {
namespace {

struct CheckWords
{
    StoreWords store;
    store::Seconds from = -10'000'000'000'000, to = 10'000'000'000'000;
};

void take_time(const char* name, const std::string& text, store::Seconds& time)
{
    if (!api::read_time(text, time))
        throw CLI::ValidationError(std::string("--") + name, "takes YYYY-MM-DD");
}

int check(const CheckWords& words)
{
    using namespace store::clickhouse;
    const Layout layout = layout_of(words.store);
    std::vector<std::string> found;
    {
        Bar bar("check");
        found = compare(layout, day_of(std::clamp<store::Seconds>(words.from, -50'000'000'000, 250'000'000'000)),
                        day_of(std::clamp<store::Seconds>(words.to, -50'000'000'000, 250'000'000'000) + 86399),
                        [&bar](const store::Progress& progress) { bar.show(progress.done, progress.total); });
    }
    for (const std::string& sentence : found)
        std::cout << sentence << "\n";
    if (!layout.secret.empty()) {
        const auto deleted = repeat_deletions(layout, store::Clock::now() + std::chrono::minutes(5));
        if (!deleted)
            throw ClusterFailure(deleted.fault());
        std::cout << "forgotten installations found again and deleted: " << *deleted << "\n";
    }
    std::cout << (found.empty() ? "replicas and rollups agree\n" : "") << std::flush;
    return found.empty() ? done : failed;
}

} // namespace

void add_cluster_check(CLI::App& cluster, int& status)
{
    const auto words = std::make_shared<CheckWords>();
    const std::shared_ptr<StoreWords> store(words, &words->store);
    CLI::App* command =
        add_cluster_word(cluster, status, "check",
                         "Compares the replicas, and rollups with rows; with --secret deletes the forgotten again.",
                         store, [words] { return check(*words); });
    for (const auto& [name, time] : {std::pair("from", &words->from), std::pair("to", &words->to)}) {
        const auto take = [name = name, time = time, words](const std::string& text) { take_time(name, text, *time); };
        command->add_option_function<std::string>(std::string("--") + name, take, "of the days, UTC");
    }
}

} // namespace commands
