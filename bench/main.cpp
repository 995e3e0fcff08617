// analytics_bench [ROW...]: prints the rows whose name holds one of the words, or all. Ends with 1 when a row misses
// its must.
#include "table.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <thread>
#include <utility>

namespace {

std::string processor()
{
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("model name", 0) == 0)
            return line.substr(line.find(':') + 2);
    return "unknown processor";
}

bool wanted(const std::string& name, int count, char** words)
{
    return count == 0 ||
           std::any_of(words, words + count, [&](const char* w) { return name.find(w) != std::string::npos; });
}

// Whole stores: they leave the system's caches full of files, for which each call of a later row's would pay.
bool writes_much(const bench::Group& group)
{
    return group.name.rfind("cluster:", 0) == 0 || group.name.rfind("collector:", 0) == 0;
}

} // namespace

int main(int count, char** arguments)
try {
    bench::end_by_signals();
    setenv("LC_ALL", "C.UTF-8", 1);
    std::printf("%s, %u processors\n", processor().c_str(), std::thread::hardware_concurrency());
    bench::Table table;
    table.print_head();
    auto groups = bench::groups();
    // By name, so that rows of a kind stand together and the table's order is the same everywhere.
    std::sort(groups.begin(), groups.end(), [](const auto& a, const auto& b) {
        return std::pair(writes_much(a), a.name) < std::pair(writes_much(b), b.name);
    });
    for (const bench::Group& group : groups)
        if (wanted(group.name, count - 1, arguments + 1))
            group.measure(table);
    const int failed = table.finish(BENCH_JSON);
    if (failed != 0)
        std::printf("%d rows miss what they must reach\n", failed);
    return failed != 0;
} catch (const std::exception& problem) {
    std::fprintf(stderr, "the bench cannot go on: %s\n", problem.what());
    return 2;
}
