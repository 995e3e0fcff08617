// The table of ratios: every figure is ours against a reference that the same program runs in the same minute.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Work to be timed: does the thing so many times.
using Work = std::function<void(long times)>;

/// What ours and the reference took, in the row's unit, and the ratio of the two.
struct Figures
{
    double ours = 0, reference = 0, ratio = 0;
    std::string unit = "ns";
};

/// The clock that a row is timed by.
enum class Clock
{
    thread, ///< the calling thread's own time, which stands still while others have the processor
    wall    ///< for work that waits or has threads of its own
};

/// From now on SIGINT and SIGTERM end the next comparison by an exception, so that what a group has started ends with
/// it; a second one ends the program at once.
void end_by_signals();

/// Times both in turn, a millisecond or one piece of work each, so that disturbances on the machine affect both. The
/// figures are medians; the ratio is the median of the ratios of neighbours.
Figures compare(const Work& ours, const Work& reference, int repetitions = 151, Clock clock = Clock::thread);

/// The same for figures that the work itself takes: each call gives one.
Figures compare_figures(const std::function<double()>& ours, const std::function<double()>& reference,
                        const std::string& unit, int repetitions = 5);

/// Calls `work(0)` to `work(count - 1)`, each on a thread of its own, and waits for all; throws what one of them threw.
void at_once(std::size_t count, const std::function<void(std::size_t i)>& work);

double median(std::vector<double> values);
double seconds_of(const std::function<void()>& work, Clock clock = Clock::wall);

/// What a row must reach and what it aims at. Without limits it is shown, not judged.
struct Limits
{
    enum Sense
    {
        at_most,
        at_least,
        shown
    };
    Sense sense = shown;
    double must = 0, goal = 0; ///< 0: none
};

inline Limits at_most(double must, double goal)
{
    return {Limits::at_most, must, goal};
}
inline Limits at_least(double must, double goal)
{
    return {Limits::at_least, must, goal};
}

/// Collects rows, prints each at once and keeps them for bench.json.
class Table
{
public:
    void row(const std::string& name, const std::string& against, const Figures& figures, const Limits& limits = {});
    /// A line of a curve or another figure that stands for itself.
    void note(const std::string& name, const std::string& text);

    void print_head() const;
    /// Writes bench.json; returns how many rows failed their must.
    int finish(const std::string& json_path) const;

private:
    struct Row
    {
        std::string name, against, verdict;
        Figures figures;
        Limits limits;
    };
    std::vector<Row> m_rows;
    std::vector<std::pair<std::string, std::string>> m_notes;
};

/// A group of rows that is measured together and chosen by its name; registers itself.
struct Group
{
    Group(const char* group_name, std::function<void(Table&)> group_measure);

    std::string name;
    std::function<void(Table&)> measure;
};

/// All groups of this program, in no particular order: that of the linker.
std::vector<Group>& groups();

/// Keeps the compiler from dropping an unused result.
template <class T>
inline void keep(const T& value)
{
    asm volatile("" : : "g"(&value) : "memory");
}

} // namespace bench
