// Decimal digits of integers.
//
// For the library's own use; lumo/common.h is the interface. Digits are made several at a time, in the bytes of one
// number: the first digit in the lowest byte. That number is then stored with its lowest byte first, whatever the
// processor.
#pragma once

#include <cstdint>
#include <cstring>

namespace lumo::detail {

/// Stores a number with its lowest byte first.
template <class Unsigned>
inline void store(char* out, Unsigned value)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    value = sizeof value == 8 ? __builtin_bswap64(value) : __builtin_bswap32(static_cast<std::uint32_t>(value));
#endif
    std::memcpy(out, &value, sizeof value);
}

/// The eight digits of a number below 100,000,000, one per byte, the first in the lowest byte. The number is split into
/// halves of four digits, those into pairs, those into digits; the parts of one size are divided in one multiplication:
/// by 10486 / 2^20 instead of 100 (right below 10,000), by 103 / 2^10 instead of 10 (right below 100).
///
/// For 12345678, with the lowest part first as in memory:
///
///     halves    1234 | 5678                    in 32 bits each
///     quarters  12 | 34 | 56 | 78              in 16 bits each
///     result    1 | 2 | 3 | 4 | 5 | 6 | 7 | 8  in 8 bits each
inline std::uint64_t eight_digits(std::uint32_t value)
{
    const std::uint64_t halves = value / 10000 | static_cast<std::uint64_t>(value % 10000) << 32;
    const std::uint64_t hundreds = halves * 10486 >> 20 & 0x0000007F0000007F;
    const std::uint64_t quarters = hundreds | (halves - hundreds * 100) << 16;
    const std::uint64_t tens = quarters * 103 >> 10 & 0x000F000F000F000F;
    return tens | (quarters - tens * 10) << 8;
}

/// Eight times the character "0": added to eight digits it makes them text.
inline constexpr std::uint64_t eight_zeros = 0x3030303030303030;
/// From here on a number has more than eight digits.
inline constexpr std::uint32_t eighth = 100000000;

/// The last eight digits of a longer number, leading zeros and all.
inline void put_last_eight(char* out, std::uint64_t value)
{
    store(out, eight_digits(static_cast<std::uint32_t>(value % eighth)) + eight_zeros);
}

/// A number below 100,000,000 without leading zeros; 0 is one digit. Returns the size, here and below.
inline unsigned put_up_to_eight(char* out, std::uint32_t value)
{
    const std::uint64_t digits = eight_digits(value);
    // The last digit always counts, so it is marked: no number is all leading zeros.
    const auto leading = static_cast<unsigned>(__builtin_ctzll(digits | std::uint64_t{1} << 56)) / 8;
    store(out, (digits + eight_zeros) >> leading * 8);
    return 8 - leading;
}

/// A number of 10,000 or more.
__attribute__((always_inline)) inline unsigned put_long(char* out, std::uint64_t value)
{
    if (value < eighth)
        return put_up_to_eight(out, static_cast<std::uint32_t>(value));
    const std::uint64_t high = value / eighth;
    unsigned size = 0;
    if (high >= eighth) {
        size = put_up_to_eight(out, static_cast<std::uint32_t>(high / eighth));
        put_last_eight(out + size, high);
        size += 8;
    } else
        size = put_up_to_eight(out, static_cast<std::uint32_t>(high));
    put_last_eight(out + size, value);
    return size + 8;
}

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

/// Any number, without leading zeros. Writes up to eight bytes at a time, so the last of them may lie behind the end.
__attribute__((always_inline)) inline unsigned put_digits(char* out, std::uint64_t value)
{
    // Most numbers of an event are small, and two look-ups are all that these take.
    if (value >= 10000)
        return put_long(out, value);
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

} // namespace lumo::detail
