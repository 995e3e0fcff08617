// Numbers as text.
//
// Every number that the library writes into a document comes from here. The text never depends on the host's locale:
// the decimal point is a point, digits are not grouped, signs are ASCII.
//
// All functions are free of state and may be called from any thread. Those that write to a plain buffer add no
// terminator and return the size of what they wrote; the room they need is given with each.
#pragma once

#include "lumo/digits.h"
#include "lumo/tova/base.h"

#include <charconv>
#include <cstddef>
#include <string>
#include <type_traits>

namespace lumo {

/// The room, in bytes, that any number of this header needs: a 64-bit integer in base 10 with its sign is the longest
/// (20), a double as "%g" has at most 13.
inline constexpr std::size_t number_room = 24;

/// The digits of every base up to 16, in the lower case that the whole library writes.
inline constexpr char hexadecimal_digits[] = "0123456789abcdef";

/// The magnitude of a number. It is negated in the unsigned type, which can hold the magnitude of the most negative
/// value too.
template <class T>
constexpr unsigned long long magnitude_of(T value)
{
    using unsigned_type = std::make_unsigned_t<T>;
    const auto bits = static_cast<unsigned_type>(value);
    return value < 0 ? static_cast<unsigned_type>(0 - bits) : bits;
}

/// Writes a decimal integer at `out`, which has room for number_room bytes: "-7", "0", "1099511627776". The most
/// negative value comes out right. Returns the size; behind it the rest of the room may be written to.
template <class T>
__attribute__((always_inline)) inline std::size_t put_decimal(char* out, T value)
{
    const std::size_t sign = value < 0 ? 1 : 0;
    if (value < 0)
        *out = '-';
    return sign + detail::put_digits(out + sign, magnitude_of(value));
}

/// Writes a double at `out`, which has room for number_room bytes, exactly as printf's "%g" does in the "C" locale: six
/// significant digits, trailing zeros dropped, an exponent of at least two digits below 1e-04 and from 1e+06 on.
///
/// | value       | text        | value        | text       |
/// |-------------|-------------|--------------|------------|
/// | 0.5         | 0.5         | 1e20         | 1e+20      |
/// | 3.0         | 3           | 0.0001       | 0.0001     |
/// | 0.1         | 0.1         | 0.00001      | 1e-05      |
/// | 123456.0    | 123456      | -0.0         | -0         |
/// | 1234567.0   | 1.23457e+06 | infinity     | inf        |
/// | 999999.5    | 1e+06       | -infinity    | -inf       |
///
/// A value that is no number gives "nan" or "-nan", by its sign bit.
///
/// Rounding is of the exact binary value, ties to even, which is what the C library does in its default rounding mode.
/// Returns the size.
TOVA_API std::size_t put_general(char* out, double value);

/// The text of an integer in any base from 2 to 16, filled up at the front.
///
/// `value`  the number; digits above nine are the letters "a" to "f".
/// `base`   2 to 16; anything else aborts with an assertion.
/// `width`  the least number of characters, sign included, at least 1 (0 or less aborts with an assertion). A text that
///          needs more is not cut.
/// `fill`   what the text is filled up with. The fill goes between the sign and the digits: write(-7, 10, 4, '0') is
///          "-007", and with a blank as fill "-  7". Deliberate: one rule for every fill. Zero has no digit of its own,
///          it is all fill: write(0, 10, 1, '0') is "0", write(0, 10, 3, ' ') is three blanks.
///
/// Compiled for int and long long. May throw std::bad_alloc.
///
/// Examples, all with fill '0':
///
/// | value | base | width | text   |
/// |-------|------|-------|--------|
/// | 0     | 10   | 1     | 0      |
/// | 255   | 10   | 1     | 255    |
/// | 255   | 16   | 1     | ff     |
/// | 255   | 2    | 10    | 0011111111 |
/// | -7    | 10   | 4     | -007   |
/// The JSON writer's integers are those of base 10, width 1 and fill '0'; put_decimal() is their shorter way.
template <class T>
std::string write(T value, int base, int width, char fill);

/// The digits of a magnitude, without sign, fill or terminator: what write() builds on.
///
/// Zero has no digits here, so that the fill alone stands for it. Returned by value in a plain record, because a number
/// of 64 bits in base 2 still fits and needs no allocation.
struct digits
{
    /// The most digits there can be: 64 bits in base 2.
    static constexpr std::size_t most = 64;

    /// The digits, most significant first; `size` of them are valid.
    char text[most];
    std::size_t size = 0; ///< how many of them are valid
};

/// Takes the magnitude of a number apart into its digits. `base` is 2 to 16.
inline digits digits_of(unsigned long long magnitude, int base)
{
    digits result;
    if (magnitude != 0) {
        const auto end = std::to_chars(result.text, result.text + digits::most, magnitude, base);
        result.size = static_cast<std::size_t>(end.ptr - result.text);
    }
    return result;
}

template <class T>
std::string write(T value, int base, int width, char fill)
{
    tova_assert_at(119, base >= 2 && base <= 16);
    tova_assert_at(120, width >= 1);
    const digits number = digits_of(magnitude_of(value), base);
    const bool negative = value < 0;
    const std::size_t room = static_cast<std::size_t>(width) - (negative ? 1 : 0);

    std::string text;
    if (negative)
        text += '-';
    if (number.size < room)
        text.append(room - number.size, fill);
    return text.append(number.text, number.size);
}

/// Compiled once, in common.cpp.
extern template TOVA_API std::string write<int>(int, int, int, char);
/// Likewise.
extern template TOVA_API std::string write<long long>(long long, int, int, char);

} // namespace lumo
