// UTF-8 decoded in windows of 32 bytes, for processors that can pack chosen values together (AVX-512 VBMI2, compress).
//
// For tova's own use. A value is computed for each byte as if a sequence began there, and the values of bytes where
// none begins are removed. That costs the same for every mix of sequences, while a decoder that goes from one sequence
// to the next pays for each branch that the processor mispredicts. Nothing is read or written beyond what the caller
// gives. Builds with sanitizers leave the windows out, so that the other decoder is tested with sanitizers too.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__) && !defined(ANALYTICS_SANITIZED)
#define TOVA_UTF8_WINDOW 1

#if !defined(__clang__)
// GCC 12 warns of registers that its own header leaves undefined on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
#else
#include <immintrin.h>
#endif

#include <cstddef>
#include <cstdint>

#define TOVA_FOR_VBMI2 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi2,bmi2,popcnt")))

namespace tova::utf8 {

inline bool has_windows()
{
    return __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

/// The bytes of a window; the last sequence that begins in it may end up to two bytes behind it.
inline constexpr std::size_t window_size = 32;

/// The sequences that begin in a window.
struct window
{
    __m512i values;       ///< of 16 bits, in front those of the sequences
    std::ptrdiff_t count; ///< how many there are
    unsigned carry;       ///< a bit for each byte behind the window that belongs to the last of them
    bool plain; ///< whether they are whole, as short as can be, and of three bytes at most; else nothing holds
};

TOVA_FOR_VBMI2 inline __m256i all(int byte)
{
    return _mm256_set1_epi8(static_cast<char>(byte));
}

// Each byte's value as if a sequence began there: its own payload bits and, by the length that it announces, six of
// each following byte. The letter a and the euro sign are 61 E2 82 AC: byte 0 gives 0x61; byte 1 announces three, (E2 -
// C0) << 12 | 02 << 6 | 2C, in 16 bits 0x20AC; the values at bytes 2 and 3 are meaningless and removed later.
TOVA_FOR_VBMI2 inline __m512i values_of(__m256i first, __m256i second, __m256i third, __mmask32 two, __mmask32 three)
{
    // Of the mark 111 of a lead byte of three, subtracting C0 leaves one bit; the two shifts move it out of the 16
    // bits.
    const __m512i own = _mm512_cvtepu8_epi16(_mm256_mask_sub_epi8(first, two, first, all(0xC0)));
    const __m512i next = _mm512_cvtepu8_epi16(_mm256_and_si256(second, all(0x3F)));
    const __m512i last = _mm512_cvtepu8_epi16(_mm256_and_si256(third, all(0x3F)));
    const __m512i both = _mm512_mask_add_epi16(own, two, _mm512_slli_epi16(own, 6), next);
    return _mm512_mask_add_epi16(both, three, _mm512_slli_epi16(both, 6), last);
}

/// Decodes the window at `at`, where `left` bytes are left of the text. `carry`: that of the window before.
TOVA_FOR_VBMI2 inline window decode_window(const void* at, std::size_t left, unsigned carry)
{
    const char* const text = static_cast<const char*>(at);
    const std::uint64_t there = _bzhi_u64(~std::uint64_t{0}, left < 64 ? static_cast<unsigned>(left) : 64);
    const auto inside = static_cast<__mmask32>(there);
    const __m256i first = _mm256_maskz_loadu_epi8(inside, text);
    const __m256i second = _mm256_maskz_loadu_epi8(static_cast<__mmask32>(there >> 1), text + 1);
    const __m256i third = _mm256_maskz_loadu_epi8(static_cast<__mmask32>(there >> 2), text + 2);

    const __mmask32 two = _mm256_cmpge_epu8_mask(first, all(0xC0)); // two two or more
    const __mmask32 three = _mm256_cmpge_epu8_mask(first, all(0xE0));
    // As signed numbers, the continuation bytes (80 to BF) are the smallest.
    const __mmask32 continuing = _mm256_cmplt_epi8_mask(first, all(0xC0));
    const __mmask32 behind = _mm256_cmplt_epi8_mask(third, all(0xC0)) >> 30;
    const std::uint64_t expected = std::uint64_t{two} << 1 | std::uint64_t{three} << 2 | carry;

    // Lead bytes that this way does not decode: C0 and C1 (always overlong), E0 or ED before the wrong half of the
    // continuation bytes (overlong, or surrogates), and everything from F0 up (four bytes, or never valid).
    const __mmask32 odd = _mm256_mask_cmplt_epu8_mask(two, first, all(0xC2)) |
                          _mm256_mask_cmplt_epu8_mask(_mm256_cmpeq_epu8_mask(first, all(0xE0)), second, all(0xA0)) |
                          _mm256_mask_cmpge_epu8_mask(_mm256_cmpeq_epu8_mask(first, all(0xED)), second, all(0xA0)) |
                          _mm256_cmpge_epu8_mask(first, all(0xF0));
    window w;
    w.carry = static_cast<unsigned>(expected >> 32);
    w.plain = continuing == static_cast<std::uint32_t>(expected) && ((w.carry & ~behind) | odd) == 0;
    const __mmask32 beginning = inside & ~continuing;
    w.values = _mm512_maskz_compress_epi16(beginning, values_of(first, second, third, two, three));
    w.count = _mm_popcnt_u32(beginning);
    return w;
}

/// Writes a window's characters; returns the end.
TOVA_FOR_VBMI2 inline wchar_t* put(wchar_t* out, const window& w)
{
    const std::uint32_t used = _bzhi_u32(~std::uint32_t{0}, static_cast<unsigned>(w.count));
    const __m512i low = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(w.values));
    const __m512i high = _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(w.values, 1));
    _mm512_mask_storeu_epi32(out, static_cast<__mmask16>(used), low);
    _mm512_mask_storeu_epi32(out + 16, static_cast<__mmask16>(used >> 16), high);
    return out + w.count;
}

} // namespace tova::utf8

#endif
