#include "lumo/common.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace {

std::string general(double value)
{
    char text[lumo::number_room];
    return {text, lumo::put_general(text, value)};
}

std::string printed(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

} // namespace

TEST(Integers, HaveSignFillAndDigitsInAnyBase)
{
    static const struct
    {
        long long value;
        int base, width;
        char fill;
        const char* text;
    } cases[] = {
        {0, 10, 3, ' ', "   "},
        {-7, 10, 4, ' ', "-  7"},
        {-7, 10, 2, '0', "-7"},
        {-255, 16, 1, '0', "-ff"},
        {12345, 10, 3, '0', "12345"},
        {LLONG_MIN, 2, 1, '0', "-1000000000000000000000000000000000000000000000000000000000000000"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(lumo::write<long long>(c.value, c.base, c.width, c.fill), c.text);
    EXPECT_EQ(lumo::write(INT_MIN, 16, 12, '0'), "-00080000000");
}

namespace {

std::string decimal(long long value)
{
    char text[lumo::number_room];
    return {text, lumo::put_decimal(text, value)};
}

} // namespace

TEST(Integers, HaveTheirDigitsAtEveryLength)
{
    for (long long power = 1; power < LLONG_MAX / 10; power *= 10)
        for (const long long value : {power, power - 1, -power, 1 - power, 9 * power / 7})
            EXPECT_EQ(decimal(value), std::to_string(value));
    EXPECT_EQ(decimal(LLONG_MIN), "-9223372036854775808");
}

namespace {

// Where rounding is hard: halves between two six-digit numbers, powers of ten, and the neighbours of both.
double hard_to_round(std::mt19937_64& random, int i)
{
    const int power = static_cast<int>(random() % 60) - 30;
    const double digits = static_cast<double>(random() % 900000 + 100000);
    double value = i % 7 == 0 ? std::pow(10.0, power) : (digits + (i % 3 == 0 ? 0.5 : 0.0)) * std::pow(10.0, power);
    for (int step = static_cast<int>(random() % 4); step > 0; --step)
        value = std::nextafter(value, random() % 2 ? 0 : HUGE_VAL);
    return i % 2 ? value : -value;
}

} // namespace

TEST(Doubles, AreWhatPrintfGives)
{
    // Values at which the notation changes, and values without digits.
    for (const double value : {0.0, -0.0, 0.3, 999999.4, 999999.5, 1e6, 0.0001, 0.000099999949, 5e-324, DBL_MAX,
                               HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan("")})
        EXPECT_EQ(general(value), printed(value));
    std::mt19937_64 random(11);
    for (int i = 0; i < 300000; ++i)
        for (const double value : {std::bit_cast<double>(random()), hard_to_round(random, i), (i - 150000) / 128.0})
            ASSERT_EQ(general(value), printed(value)) << std::bit_cast<std::uint64_t>(value);
}
