#include "table.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace bench {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

namespace {

volatile std::sig_atomic_t g_signal = 0;

double now_s(Clock clock)
{
    timespec now = {};
    clock_gettime(clock == Clock::thread ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

void end_by_signals()
{
    struct sigaction action = {};
    action.sa_handler = [](int number) { g_signal = number; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM})
        sigaction(number, &action, nullptr);
}

double seconds_of(const std::function<void()>& work, Clock clock)
{
    const double start = now_s(clock);
    work();
    return now_s(clock) - start;
}

void at_once(std::size_t count, const std::function<void(std::size_t i)>& work)
{
    std::vector<std::future<void>> parts;
    for (std::size_t i = 0; i < count; ++i)
        parts.push_back(std::async(std::launch::async, work, i));
    for (std::future<void>& part : parts)
        part.get();
}

namespace {

// How often the work is to be done to last about a thousandth of a second; also warms it up. Short turns, and many of
// them: then most turns are not interrupted, on a busy machine too, and the median is one of those.
long calibrate(const Work& work, Clock clock)
{
    constexpr double wanted = 0.001;
    for (long times = 1;; times *= 4) {
        const double taken = seconds_of([&] { work(times); }, clock);
        if (taken > wanted / 4 || times > 100'000'000)
            return std::max(1L, static_cast<long>(static_cast<double>(times) * wanted / taken));
    }
}

} // namespace

Figures compare(const Work& ours, const Work& reference, int repetitions, Clock clock)
{
    // Each for itself: the two may differ by orders of magnitude, and their turns are to be of the same length.
    const long our_times = calibrate(ours, clock), reference_times = calibrate(reference, clock);
    const auto each_ns = [clock](const Work& work, long times) {
        return seconds_of([&] { work(times); }, clock) * 1e9 / static_cast<double>(times);
    };
    return compare_figures([&] { return each_ns(ours, our_times); },
                           [&] { return each_ns(reference, reference_times); }, "ns", repetitions);
}

Figures compare_figures(const std::function<double()>& ours, const std::function<double()>& reference,
                        const std::string& unit, int repetitions)
{
    std::vector<double> our_figures, reference_figures, ratios;
    // In turns, with the ratio of neighbouring turns: what slows the machine for a second slows both of a pair.
    for (int i = 0; i < repetitions; ++i) {
        if (g_signal != 0)
            throw std::runtime_error("it was told to end");
        reference_figures.push_back(reference());
        our_figures.push_back(ours());
        ratios.push_back(our_figures.back() / reference_figures.back());
    }
    return {median(our_figures), median(reference_figures), median(ratios), unit};
}

namespace {

std::string shown(double value, const std::string& unit)
{
    static const struct
    {
        double from, divisor;
        const char* unit;
    } steps[] = {{1e9, 1e9, "s"}, {1e6, 1e6, "ms"}, {1e3, 1e3, "us"}, {0, 1, "ns"}};
    char text[32];
    for (const auto& step : steps)
        if (unit == "ns" && value >= step.from) {
            std::snprintf(text, sizeof text, "%.3g %s", value / step.divisor, step.unit);
            return text;
        }
    std::snprintf(text, sizeof text, "%.4g %s", value, unit.c_str());
    return text;
}

std::string shown_limit(double limit, Limits::Sense sense)
{
    char text[32] = "-";
    if (limit != 0)
        std::snprintf(text, sizeof text, "%s%.2f", sense == Limits::at_least ? ">" : "<", limit);
    return text;
}

bool reaches(double ratio, double limit, Limits::Sense sense)
{
    return limit == 0 || (sense == Limits::at_least ? ratio >= limit : ratio <= limit);
}

std::string verdict_of(double ratio, const Limits& limits)
{
    if (limits.sense == Limits::shown)
        return "shown";
    if (!reaches(ratio, limits.must, limits.sense))
        return "FAIL";
    return reaches(ratio, limits.goal, limits.sense) ? "ok" : "ok, below goal";
}

} // namespace

void Table::print_head() const
{
    std::printf("%-34s %-44s %10s %10s %8s %8s %8s\n", "what", "against", "ours", "reference", "ratio", "must", "goal");
}

void Table::row(const std::string& name, const std::string& against, const Figures& figures, const Limits& limits)
{
    const Row row{name, against, verdict_of(figures.ratio, limits), figures, limits};
    std::printf("%-34s %-44s %10s %10s %8.3f %8s %8s  %s\n", name.c_str(), against.c_str(),
                shown(figures.ours, figures.unit).c_str(), shown(figures.reference, figures.unit).c_str(),
                figures.ratio, shown_limit(limits.must, limits.sense).c_str(),
                shown_limit(limits.goal, limits.sense).c_str(), row.verdict.c_str());
    // Flushed at once: a whole run takes minutes, and a person may be watching.
    std::fflush(stdout);
    m_rows.push_back(row);
}

void Table::note(const std::string& name, const std::string& text)
{
    std::printf("%-34s %s\n", name.c_str(), text.c_str());
    std::fflush(stdout);
    m_notes.emplace_back(name, text);
}

int Table::finish(const std::string& json_path) const
{
    nlohmann::json rows = nlohmann::json::array(), notes = nlohmann::json::array();
    int failed = 0;
    for (const Row& row : m_rows) {
        failed += row.verdict == "FAIL";
        nlohmann::json entry = {{"name", row.name},
                                {"against", row.against},
                                {"unit", row.figures.unit},
                                {"ours", row.figures.ours},
                                {"reference", row.figures.reference},
                                {"ratio", row.figures.ratio},
                                {"verdict", row.verdict}};
        if (row.limits.must != 0)
            entry["must"] = row.limits.must;
        if (row.limits.goal != 0)
            entry["goal"] = row.limits.goal;
        rows.push_back(entry);
    }
    for (const auto& [name, text] : m_notes)
        notes.push_back({{"name", name}, {"text", text}});
    std::ofstream(json_path) << nlohmann::json{{"rows", rows}, {"notes", notes}, {"failed", failed}}.dump(2) << '\n';
    return failed;
}

Group::Group(const char* group_name, std::function<void(Table&)> group_measure)
    : name(group_name), measure(std::move(group_measure))
{
    groups().push_back(*this);
}

std::vector<Group>& groups()
{
    // Made on the first use, which is another static's initialisation.
    static std::vector<Group> all;
    return all;
}

} // namespace bench
