#include "figures.h"

#include <cmath>
#include <numeric>

namespace store {

namespace {

constexpr size_t g_parts = 20; // of a histogram

double percentile(const std::vector<double>& sorted, unsigned percent)
{
    size_t number = (sorted.size() * percent + 99) / 100; // ceil(p n), counted from 1
    return sorted[std::max<size_t>(number, 1) - 1];
}

std::vector<uint64_t> histogram(const std::vector<double>& sorted)
{
    double min = sorted.front(), span = sorted.back() - min;
    if (span == 0 || !std::isfinite(span))
        return {sorted.size()};
    std::vector<uint64_t> parts(g_parts);
    for (double value : sorted)
        ++parts[std::min(static_cast<size_t>((value - min) / span * g_parts), g_parts - 1)];
    return parts;
}

using Ranked = std::vector<std::pair<PropertyKey, uint64_t>>;

Ranked ranked(const std::map<PropertyKey, uint64_t>& values)
{
    Ranked sorted(values.begin(), values.end());
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    return sorted;
}

} // namespace

OwnedValue owned(int type, const std::string& text)
{
    OwnedValue value;
    value.other = type == g_other_type;
    value.type = value.other ? ValueType::text : static_cast<ValueType>(type);
    value.text = text;
    return value;
}

Numbers numbers_of(std::vector<double> values)
{
    Numbers numbers;
    if (values.empty())
        return numbers;
    std::sort(values.begin(), values.end());
    numbers.count = values.size();
    numbers.min = values.front();
    numbers.median = percentile(values, 50);
    numbers.percentile_95 = percentile(values, 95);
    numbers.max = values.back();
    numbers.sum = std::accumulate(values.begin(), values.end(), 0.0);
    numbers.histogram = histogram(values);
    return numbers;
}

void Course::add(Seconds at, const PropertyKey& value, uint64_t events)
{
    m_points[at][value] += events;
    m_sums[value] += events;
}

std::vector<PropertyPoint> Course::most_frequent(size_t limit) const
{
    Ranked sums = ranked(m_sums);
    sums.resize(std::min(sums.size(), limit));
    std::set<PropertyKey> shown;
    for (const auto& value : sums)
        shown.insert(value.first);
    std::vector<PropertyPoint> rows;
    for (const auto& [at, values] : m_points) {
        for (const auto& [place, events] : ranked(values)) {
            if (shown.count(place) != 0)
                rows.push_back({at, owned(std::get<1>(place), std::get<2>(place)), events});
        }
    }
    return rows;
}

} // namespace store
