#include "http/budget.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>

namespace {

using http::Budget;

constexpr uint64_t g_mib = 1 << 20, g_limit = 64 * g_mib;

struct Step
{
    const char *body, *address;
    double at;        // seconds
    uint64_t mib;     // charged then
    const char* left; // the bodies that are not cut after it, in the order of their names
};

std::string left_after(const std::vector<Step>& steps)
{
    Budget budget(g_limit);
    const Budget::Clock::time_point begin{};
    std::map<std::string, bool> is_cut;
    std::map<std::string, std::unique_ptr<Budget::Share>> shares;
    for (const Step& step : steps) {
        const auto now =
            begin + std::chrono::duration_cast<Budget::Clock::duration>(std::chrono::duration<double>(step.at));
        auto& share = shares[step.body];
        if (share == nullptr)
            share = std::make_unique<Budget::Share>(
                budget, step.address, [&is_cut, body = step.body] { is_cut[body] = true; }, now);
        if (!share->charge(step.mib * g_mib, now))
            is_cut[step.body] = true;
        std::string left;
        for (const auto& [body, held] : shares)
            left += is_cut[body] ? "" : body;
        EXPECT_EQ(left, step.left) << step.body << " at " << step.at;
    }
    shares.clear();
    return std::to_string(budget.used());
}

} // namespace

TEST(CollectorBudget, CutsTheSlowestBodyThatStandsInTheWay)
{
    const std::vector<Step> rows[] = {
        {{"a", "x", 0, 8, "a"}, {"b", "y", 0, 8, "ab"}, {"b", "y", 1, 1, "a"}},  // an eighth is an address's
        {{"a", "x", 0, 4, "a"}, {"b", "x", 9, 4, "ab"}, {"b", "x", 10, 4, "b"}}, // the slower of two of one address
        {{"a", "x", 0, 1, "a"}, {"b", "x", 9, 7, "ab"}, {"c", "x", 9, 1, "bc"}}, // small ones are not spared there
        {{"a", "1", 0, 8, "a"},
         {"b", "2", 5, 8, "ab"},
         {"c", "3", 6, 8, "abc"}, // large ones have the half
         {"d", "4", 7, 8, "abcd"},
         {"e", "5", 8, 2, "bcde"}},
        {{"a", "1", 0, 8, "a"},
         {"b", "2", 0, 8, "ab"},
         {"c", "3", 0, 8, "abc"}, // ... the other one is small ones'
         {"d", "4", 0, 8, "abcd"},
         {"e", "5", 9, 1, "abcde"}},
    };
    for (const auto& steps : rows)
        EXPECT_EQ(left_after(steps), "0"); // all is given back
}
