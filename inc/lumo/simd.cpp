#include "lumo/simd.h"

#include "lumo/common.h"

// A 16-byte load may read past the end of a text, though never into another page. That is harmless to the processor,
// but sanitizers see it, so their builds take the plain forms.
#if defined(__SSE2__) && !defined(ANALYTICS_SANITIZED)
#define LUMO_SSE2 1
#include <immintrin.h>
#endif

namespace lumo::simd {

// Writes one character, escaped if need be.
static char* put_escaped(char* out, char c)
{
    switch (c) {
    case '\n':
        c = 'n';
        break;
    case '\r':
        c = 'r';
        break;
    case '\t':
        c = 't';
        break;
    case '"':
    case '\\':
        break;
    default:
        *out = c;
        return out + 1;
    }
    out[0] = '\\';
    out[1] = c;
    return out + 2;
}

copied copy_escaped_plain(const char* in, char* out, const char* limit)
{
    while (limit - out >= escape_stride) {
        if (*in == '\0')
            return {nullptr, out};
        out = put_escaped(out, *in++);
    }
    return {in, out};
}

char* percent_encode_plain(const char* in, std::size_t size, char* out, const std::uint8_t* unsafe)
{
    for (const char* end = in + size; in != end; ++in) {
        const auto byte = static_cast<unsigned char>(*in);
        if (unsafe[byte] == 0) {
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

std::size_t count_unsafe_plain(const char* in, std::size_t size, const std::uint8_t* unsafe)
{
    std::size_t count = 0;
    for (const char* end = in + size; in != end; ++in)
        count += unsafe[static_cast<unsigned char>(*in)] != 0;
    return count;
}

#if LUMO_SSE2

// A text may lie in the last bytes of a page whose neighbour is not ours to read.
static bool load_stays_in_page(const char* in)
{
    return (reinterpret_cast<std::uintptr_t>(in) & 4095) <= 4096 - 16;
}

copied copy_escaped(const char* in, char* out, const char* limit)
{
    const __m128i quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\'), carriage_return = _mm_set1_epi8('\r');
    while (limit - out >= escape_stride) {
        unsigned plain = 0;
        if (load_stays_in_page(in)) {
            const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), text);
            // Everything up to CR is stopped at: NUL, TAB, LF, CR, and raw control bytes, which go on as they are.
            const __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(text, carriage_return), text);
            const __m128i stop =
                _mm_or_si128(low, _mm_or_si128(_mm_cmpeq_epi8(text, quote), _mm_cmpeq_epi8(text, backslash)));
            const auto stops = static_cast<unsigned>(_mm_movemask_epi8(stop));
            plain = static_cast<unsigned>(__builtin_ctz(stops | 0x10000));
        }
        in += plain;
        out += plain;
        if (plain == 16)
            continue;
        if (*in == '\0')
            return {nullptr, out};
        out = put_escaped(out, *in++);
    }
    return {in, out};
}

#else

copied copy_escaped(const char* in, char* out, const char* limit)
{
    return copy_escaped_plain(in, out, limit);
}

#endif

char* percent_encode(const char* in, std::size_t size, char* out, const std::uint8_t* unsafe)
{
    return percent_encode_plain(in, size, out, unsafe);
}

std::size_t count_unsafe(const char* in, std::size_t size, const std::uint8_t* unsafe)
{
    return count_unsafe_plain(in, size, unsafe);
}

} // namespace lumo::simd
