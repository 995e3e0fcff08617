// Decimal digits of integers.
//
// For the library's own use; lumo/common.h is the interface. Digits are looked up in pairs. How many digits a number
// has is known from its first piece, so what follows the number need not wait for the other pieces:
//
//     1099511627776 = 10995 | 11627776, 10995 = 1 | 0995        pieces: "1", "0995", "11627776"
#pragma once

#include <cstdint>
#include <cstring>

namespace lumo::detail {

/// The numbers below 100: both digits, and without a leading zero, which is how a number begins.
struct small_numbers
{
    char pair[100][2];      ///< "07"
    char text[100][2];      ///< "7", and a byte that does not count
    std::uint8_t size[100]; ///< of the text
};

constexpr small_numbers make_small_numbers()
{
    small_numbers all{};
    for (int i = 0; i < 100; ++i) {
        all.pair[i][0] = static_cast<char>('0' + i / 10);
        all.pair[i][1] = static_cast<char>('0' + i % 10);
        all.text[i][0] = all.pair[i][i < 10 ? 1 : 0];
        all.text[i][1] = all.pair[i][1];
        all.size[i] = i < 10 ? 1 : 2;
    }
    return all;
}

/// Made when the library is compiled.
inline constexpr small_numbers small = make_small_numbers();

/// A number below 10,000 without leading zeros; 0 is one digit. Returns the size, here and below.
__attribute__((always_inline)) inline unsigned put_up_to_four(char* out, std::uint64_t value)
{
    // Most numbers of an event are small, and two look-ups are all that these take.
    if (value < 100) {
        std::memcpy(out, small.text[value], 2);
        return small.size[value];
    }
    const auto number = static_cast<std::uint32_t>(value);
    const std::uint32_t hundreds = number / 100;
    const unsigned size = small.size[hundreds];
    std::memcpy(out, small.text[hundreds], 2);
    std::memcpy(out + size, small.pair[number - hundreds * 100], 2);
    return size + 2;
}

/// The four digits of a number below 10,000, leading zeros and all: 42 is "0042".
inline void put_four(char* out, std::uint32_t value)
{
    const std::uint32_t hundreds = value / 100;
    std::memcpy(out, small.pair[hundreds], 2);
    std::memcpy(out + 2, small.pair[value - hundreds * 100], 2);
}

/// A number below 100,000,000 without leading zeros.
__attribute__((always_inline)) inline unsigned put_up_to_eight(char* out, std::uint32_t value)
{
    if (value < 10000)
        return put_up_to_four(out, value);
    const std::uint32_t high = value / 10000;
    const unsigned size = put_up_to_four(out, high);
    put_four(out + size, value - high * 10000);
    return size + 4;
}

/// The eight digits of a number below 100,000,000, leading zeros and all.
inline void put_eight(char* out, std::uint32_t value)
{
    put_four(out, value / 10000);
    put_four(out + 4, value % 10000);
}

/// Any number, without leading zeros.
__attribute__((always_inline)) inline unsigned put_digits(char* out, std::uint64_t value)
{
    constexpr std::uint32_t eighth = 100000000;
    if (value < 10000)
        return put_up_to_four(out, value);
    if (value < eighth)
        return put_up_to_eight(out, static_cast<std::uint32_t>(value));
    const std::uint64_t high = value / eighth;
    unsigned size = 0;
    if (high < eighth)
        size = put_up_to_eight(out, static_cast<std::uint32_t>(high));
    else {
        size = put_up_to_four(out, high / eighth); // at most 1844
        put_eight(out + size, static_cast<std::uint32_t>(high % eighth));
        size += 8;
    }
    put_eight(out + size, static_cast<std::uint32_t>(value - high * eighth));
    return size + 8;
}

} // namespace lumo::detail
