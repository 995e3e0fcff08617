#include "lumo/common.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace lumo {

template std::string write<int>(int, int, int, char);
template std::string write<long long>(long long, int, int, char);

namespace {

// Every power of ten that a double holds exactly.
constexpr std::array<double, 23> exact_powers = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                                 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// A positive number as 0.dddddd times a power of ten: its six digits, and the exponent of the first.
struct six_digits
{
    std::uint32_t digits;
    int exponent;
};

// Divides by a power that is exact instead of multiplying by its inverse, which is not: the error bound of
// round_to_six() allows for one rounding and no more.
double scale(double value, int power)
{
    return power < 0 ? value / exact_powers[-power] : value * exact_powers[power];
}

// Rounds a positive number to six digits. Returns false where this short way cannot be sure how to round.
//
// The scaled number is below 2^20 and the result of a single operation on exact operands, so it is off by less than
// 2^-33. Only when it lies closer to a half than that can rounding go the wrong way.
bool round_to_six(double magnitude, six_digits& result)
{
    constexpr double doubt = 1e-9;
    // floor(log10) from the binary exponent: right, or one too low. 78913 / 2^18 is log10(2).
    const int binary = static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - 1023;
    int exponent = (binary * 78913) >> 18;
    double scaled = scale(magnitude, 5 - exponent);
    if (scaled >= 1e6)
        scaled = scale(magnitude, 5 - ++exponent);
    // Rounded first and checked afterwards, so that the digits need not wait for the check.
    const double next_half = scaled + 0.5;
    const auto rounded = static_cast<std::int32_t>(next_half);
    result = {static_cast<std::uint32_t>(rounded), exponent};
    if (std::fabs(scaled - rounded) > 0.5 - doubt)
        return false;
    if (result.digits == 1000000)
        result = {100000, exponent + 1};
    return true;
}

char* put_exponent(char* out, int exponent)
{
    out[0] = 'e';
    out[1] = exponent < 0 ? '-' : '+';
    const int magnitude = exponent < 0 ? -exponent : exponent;
    out[2] = static_cast<char>('0' + magnitude / 10);
    out[3] = static_cast<char>('0' + magnitude % 10);
    return out + 4;
}

// Six digits in the bytes of one number: the first digit in the lowest byte, the two highest bytes 0.
std::uint64_t six_in_one(std::uint32_t digits)
{
    const auto pair = [](std::uint32_t value) {
        const char* const text = detail::small.pair[value];
        return static_cast<std::uint64_t>(static_cast<unsigned char>(text[0]) | static_cast<unsigned char>(text[1])
                                                                                    << 8);
    };
    return pair(digits / 10000) | pair(digits / 100 % 100) << 16 | pair(digits % 100) << 32;
}

// Stores them, and two more bytes, with the lowest first whatever the processor.
void store(char* out, std::uint64_t text)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    text = __builtin_bswap64(text);
#endif
    std::memcpy(out, &text, sizeof text);
}

// Lays six digits out as "%g" does. The digits stay in one number and are stored eight bytes at a time: surplus bytes
// are overwritten by the next store or lie behind the end.
char* put_six(char* out, six_digits number)
{
    constexpr std::uint64_t six_zeros = 0x303030303030;
    const std::uint64_t text = six_in_one(number.digits);
    // Trailing zeros are dropped; the first digit is never 0, so the argument is not 0.
    const int count = 8 - __builtin_clzll(text ^ six_zeros) / 8;
    const bool scientific = number.exponent < -4 || number.exponent >= 6;
    if (!scientific && number.exponent < 0) {
        std::memcpy(out, "0.000000", 8);
        out += 1 - number.exponent;
        store(out, text);
        return out + count;
    }
    const int before_point = scientific ? 1 : number.exponent + 1;
    store(out, text);
    out += before_point;
    if (count > before_point) {
        *out++ = '.';
        store(out, text >> 8 * before_point);
        out += count - before_point;
    }
    return scientific ? put_exponent(out, number.exponent) : out;
}

} // namespace

std::size_t put_general(char* out, double value)
{
    const double magnitude = std::fabs(value);
    const std::size_t sign = std::signbit(value);
    // Stored in any case, which saves a branch: without a sign the first digit overwrites it.
    *out = '-';
    // Zero has no first digit to scale to, and keeps its sign.
    if (magnitude == 0) {
        out[sign] = '0';
        return sign + 1;
    }
    six_digits number;
    // Within these bounds every scaling is by a power of ten that is exact.
    const bool easy = magnitude >= 1e-16 && magnitude < 1e22 && round_to_six(magnitude, number);
    const char* end = easy ? put_six(out + sign, number)
                           : std::to_chars(out, out + number_room, value, std::chars_format::general, 6).ptr;
    return static_cast<std::size_t>(end - out);
}

} // namespace lumo
