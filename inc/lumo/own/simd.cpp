#include "lumo/own/simd.h"

#include "lumo/common.h"

#include <cstring>

// Loads stay within what the caller gave, so sanitizers have no objection to the faster forms.
#if defined(__x86_64__) && defined(__GNUC__)
#define LUMO_SSSE3 1
#include <immintrin.h>
#if !defined(__clang__)
// GCC 12 warns of registers that its own header leaves undefined on purpose.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#endif

namespace lumo::simd {

namespace {

// The two plain forms define the result; the other forms are tested against them.
char* percent_encode_plain(const char* in, std::size_t size, char* out, const byte_class& unsafe)
{
    for (const char* end = in + size; in != end; ++in) {
        const auto byte = static_cast<unsigned char>(*in);
        if (!unsafe.holds[byte]) {
            *out++ = *in;
            continue;
        }
        out[0] = '%';
        out[1] = hexadecimal_digits[byte >> 4];
        out[2] = hexadecimal_digits[byte & 15];
        out += 3;
    }
    return out;
}

std::size_t count_plain(const char* in, std::size_t size, const byte_class& counted)
{
    std::size_t count = 0;
    for (const char* end = in + size; in != end; ++in)
        count += counted.holds[static_cast<unsigned char>(*in)];
    return count;
}

#if LUMO_SSSE3

#define LUMO_FOR_SSSE3 __attribute__((target("ssse3,popcnt")))

// Tested at run time: one library file serves all processors of its architecture.
bool has_ssse3()
{
    return __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("popcnt");
}

LUMO_FOR_SSSE3 __m128i load(const void* from)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

LUMO_FOR_SSSE3 void store(char* to, __m128i bytes)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
}

// Sixteen bytes split into their high and low halves (4 bits each): a half is small enough to index a table of sixteen.
struct halves
{
    __m128i high, low;
};

LUMO_FOR_SSSE3 halves halves_of(__m128i bytes)
{
    // There is no shift of single bytes, only of pairs; the mask removes the bits shifted in from the neighbour.
    const __m128i mask = _mm_set1_epi8(15);
    return {_mm_and_si128(_mm_srli_epi16(bytes, 4), mask), _mm_and_si128(bytes, mask)};
}

// A bit mask of those of sixteen bytes that belong to the class. The low half of a byte selects a row, which has one
// bit for each high half; the high half selects a column, which is that bit. The byte belongs to the class if the two
// share a bit: for "&" (0x26) row 6 has bit 2 set, and column 2 is 1 << 2.
LUMO_FOR_SSSE3 unsigned members(halves bytes, __m128i rows, __m128i columns)
{
    const __m128i found = _mm_and_si128(_mm_shuffle_epi8(rows, bytes.low), _mm_shuffle_epi8(columns, bytes.high));
    return ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(found, _mm_setzero_si128()))) & 0xFFFF;
}

// The column of each high half. Bytes from 0x80 up use the column of the control bytes, because both belong to every
// class.
LUMO_FOR_SSSE3 __m128i class_columns()
{
    return _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 1, 1, 1, 1, 1, 1, 1);
}

// How four quads shrink to the encoded form of four bytes. A quad is a byte, "%" and its two digits: "a%61". A byte
// that stays needs the first of the four, an encoded one the other three. One row for each choice of the bytes to
// encode: for "a=bc" only the second, choice 0010 in binary, row 2 takes the quads a%61 =%3d b%62 c%63 and picks their
// bytes 0, 5, 6, 7, 8, 12, which are "a%3dbc"; size 6.
struct shrink_table
{
    std::uint8_t order[16][16];
    std::uint8_t size[16];
};

constexpr shrink_table make_shrink_table()
{
    shrink_table table{};
    for (unsigned choice = 0; choice < 16; ++choice) {
        std::uint8_t at = 0;
        for (unsigned byte = 0; byte < 4; ++byte) {
            const bool encoded = choice >> byte & 1;
            for (unsigned part = encoded ? 1 : 0; part < (encoded ? 4U : 1U); ++part)
                table.order[choice][at++] = static_cast<std::uint8_t>(4 * byte + part);
        }
        table.size[choice] = at;
    }
    return table;
}

constexpr shrink_table shrink = make_shrink_table();

// Stores sixteen bytes, of which at most twelve are part of the result; the next store overwrites the others, or they
// land in the slack.
LUMO_FOR_SSSE3 char* put_four(char* out, __m128i quads, unsigned choice)
{
    store(out, _mm_shuffle_epi8(quads, load(shrink.order[choice])));
    return out + shrink.size[choice];
}

// Encodes sixteen bytes, those with a set bit in `chosen`. All become quads first, by interleaving twice: the bytes
// with "%", their two digits with each other, then those pairs. The table then keeps of each quad what is needed, so
// there is no branch for a single byte.
LUMO_FOR_SSSE3 char* put_sixteen(char* out, __m128i bytes, halves parts, unsigned chosen)
{
    const __m128i digits = load(hexadecimal_digits), percent = _mm_set1_epi8('%');
    const __m128i first = _mm_shuffle_epi8(digits, parts.high), second = _mm_shuffle_epi8(digits, parts.low);
    const __m128i marks = _mm_unpacklo_epi8(bytes, percent), pairs = _mm_unpacklo_epi8(first, second);
    out = put_four(out, _mm_unpacklo_epi16(marks, pairs), chosen & 15);
    out = put_four(out, _mm_unpackhi_epi16(marks, pairs), chosen >> 4 & 15);
    const __m128i later_marks = _mm_unpackhi_epi8(bytes, percent), later_pairs = _mm_unpackhi_epi8(first, second);
    out = put_four(out, _mm_unpacklo_epi16(later_marks, later_pairs), chosen >> 8 & 15);
    return put_four(out, _mm_unpackhi_epi16(later_marks, later_pairs), chosen >> 12);
}

LUMO_FOR_SSSE3 char* percent_encode_ssse3(const char* in, std::size_t size, char* out, const byte_class& unsafe)
{
    const __m128i rows = load(unsafe.rows), columns = class_columns();
    const char* end = in + size;
    for (; end - in >= 16; in += 16) {
        const __m128i bytes = load(in);
        const halves parts = halves_of(bytes);
        const unsigned chosen = members(parts, rows, columns);
        if (chosen != 0) {
            out = put_sixteen(out, bytes, parts, chosen);
            continue;
        }
        store(out, bytes);
        out += 16;
    }
    // Fewer than sixteen are left; a load of sixteen would read what is not the caller's.
    return percent_encode_plain(in, static_cast<std::size_t>(end - in), out, unsafe);
}

LUMO_FOR_SSSE3 std::size_t count_ssse3(const char* in, std::size_t size, const byte_class& counted)
{
    const __m128i rows = load(counted.rows), columns = class_columns();
    const char* end = in + size;
    std::size_t count = 0;
    for (; end - in >= 16; in += 16)
        count += static_cast<unsigned>(__builtin_popcount(members(halves_of(load(in)), rows, columns)));
    return count + count_plain(in, static_cast<std::size_t>(end - in), counted);
}

// The same sixty-four bytes at a time, for processors with an instruction that packs chosen bytes together (compress).
#define LUMO_FOR_VBMI2 __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vbmi2,bmi2,popcnt")))

bool has_vbmi2()
{
    return has_ssse3() && __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
           __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("bmi2");
}

// A bit mask of those of sixty-four bytes that belong to the class: bytes below 0x80 by a table, all others always.
LUMO_FOR_VBMI2 std::uint64_t members(__m512i bytes, __m512i lower, __m512i upper)
{
    // The look-up uses the lower seven bits of a byte, so a byte from 0x80 up gets the result of another; its sign bit
    // sets it.
    const __m512i known = _mm512_permutex2var_epi8(lower, bytes, upper);
    return _mm512_test_epi8_mask(known, known) | _mm512_movepi8_mask(bytes);
}

// Shrinks sixteen quads: to "%" and the digits where a bit of `chosen` is set, else to the byte itself.
LUMO_FOR_VBMI2 char* put_quads(char* out, __m512i quads, std::uint64_t chosen)
{
    constexpr std::uint64_t first_of_quad = 0x1111111111111111;
    // Four bits of the mask for each quad: 1110 for an encoded one (times 14), 0001 for any other. For "a=bc" `chosen`
    // is 0010, pdep spreads it to `encoded` 0000 0000 0001 0000, and the whole mask 0001 0001 1110 0001 keeps "a",
    // "%3d", "b" and "c".
    const std::uint64_t encoded = _pdep_u64(chosen, first_of_quad), kept = encoded ^ first_of_quad;
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(kept | encoded * 14, quads));
    return out + 16 + 2 * _mm_popcnt_u64(chosen & 0xFFFF);
}

LUMO_FOR_VBMI2 char* percent_encode_vbmi2(const char* in, std::size_t size, char* out, const byte_class& unsafe)
{
    const __m512i lower = _mm512_loadu_si512(unsafe.holds), upper = _mm512_loadu_si512(unsafe.holds + 64);
    const __m512i digits = _mm512_broadcast_i32x4(load(hexadecimal_digits)), percent = _mm512_set1_epi8('%');
    // Interleaving works within each quarter of the register. With the groups of four bytes in this order, its results
    // are in the order of the text.
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    const char* end = in + size;
    for (; end - in >= 64; in += 64) {
        const __m512i straight = _mm512_loadu_si512(in);
        const std::uint64_t chosen = members(straight, lower, upper);
        const __m512i bytes = _mm512_permutexvar_epi32(order, straight);
        const __m512i high = _mm512_and_si512(_mm512_srli_epi16(bytes, 4), _mm512_set1_epi8(15));
        const __m512i first = _mm512_shuffle_epi8(digits, high);
        const __m512i second = _mm512_shuffle_epi8(digits, _mm512_and_si512(bytes, _mm512_set1_epi8(15)));
        const __m512i marks = _mm512_unpacklo_epi8(bytes, percent), pairs = _mm512_unpacklo_epi8(first, second);
        out = put_quads(out, _mm512_unpacklo_epi16(marks, pairs), chosen);
        out = put_quads(out, _mm512_unpackhi_epi16(marks, pairs), chosen >> 16);
        const __m512i later_marks = _mm512_unpackhi_epi8(bytes, percent);
        const __m512i later_pairs = _mm512_unpackhi_epi8(first, second);
        out = put_quads(out, _mm512_unpacklo_epi16(later_marks, later_pairs), chosen >> 32);
        out = put_quads(out, _mm512_unpackhi_epi16(later_marks, later_pairs), chosen >> 48);
    }
    return percent_encode_ssse3(in, static_cast<std::size_t>(end - in), out, unsafe);
}

LUMO_FOR_VBMI2 std::size_t count_vbmi2(const char* in, std::size_t size, const byte_class& counted)
{
    const __m512i lower = _mm512_loadu_si512(counted.holds), upper = _mm512_loadu_si512(counted.holds + 64);
    // What is left over goes to the next smaller form, which leaves the last few to the plain one.
    const char* end = in + size;
    std::size_t count = 0;
    for (; end - in >= 64; in += 64) {
        const __m512i bytes = _mm512_loadu_si512(in);
        count += static_cast<std::size_t>(_mm_popcnt_u64(members(bytes, lower, upper)));
    }
    return count + count_ssse3(in, static_cast<std::size_t>(end - in), counted);
}

#endif

} // namespace

// A static of the function rather than of the file: the first use may be in the initialisation of another file's
// static.
const form* forms()
{
    static const form all[] = {
#if LUMO_SSSE3
        {"AVX-512 VBMI2", has_vbmi2(), percent_encode_vbmi2, count_vbmi2},
        {"SSSE3", has_ssse3(), percent_encode_ssse3, count_ssse3},
#endif
        {"plain", true, percent_encode_plain, count_plain},
    };
    return all;
}

const form& best()
{
    static const form& chosen = []() -> const form& {
        const form* candidate = forms();
        while (!candidate->usable)
            ++candidate;
        return *candidate;
    }();
    return chosen;
}

void rest()
{
#if defined(__x86_64__) && defined(__GNUC__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) && defined(__GNUC__)
    __asm__ volatile("yield");
#endif
}

} // namespace lumo::simd
