// Copying text into a JSON string.
//
// For the library's own use. Inline, because it is the inner loop of every name and every value: one look at sixteen
// bytes finds the end of the text and what is to be escaped, and copies them at the same time. Written with the
// compiler's own vectors, which every processor has in some form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lumo {

/// Where a copy stopped reading and writing.
struct escaped
{
    const char* in; ///< null when the whole text was copied
    char* out;
};

/// The room that copy_escaped needs to begin with, and below which it stops and asks for more.
inline constexpr std::ptrdiff_t escape_stride = 32;

/// Writes one character: quote, backslash, LF, CR and TAB behind a backslash, every other as it is.
inline char* put_escaped(char* out, char c)
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

/// Copies a NUL-terminated text from `in` to `out`, escaped.
///
/// Stops at the end of the text or when fewer than escape_stride bytes are left before `limit`. Between the end of the
/// copy and `limit` anything may be written.
inline escaped copy_escaped_plain(const char* in, char* out, const char* limit)
{
    do {
        if (*in == '\0')
            return {nullptr, out};
        out = put_escaped(out, *in++);
    } while (limit - out >= escape_stride);
    return {in, out};
}

// A load of sixteen bytes may read past the end of a text, though never into another page. That is harmless, but
// sanitizers see it, so their builds take the plain form.
#if !defined(__GNUC__) || defined(ANALYTICS_SANITIZED)

inline escaped copy_escaped(const char* in, char* out, const char* limit)
{
    return copy_escaped_plain(in, out, limit);
}

#else

/// Sixteen bytes, and the same as two numbers.
using sixteen = unsigned char __attribute__((vector_size(16)));
using two_halves = std::uint64_t __attribute__((vector_size(16)));

/// The number of bytes before the first that is not zero in `half`, which is not 0.
inline unsigned zero_bytes_before(std::uint64_t half)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return static_cast<unsigned>(__builtin_clzll(half)) / 8;
#else
    return static_cast<unsigned>(__builtin_ctzll(half)) / 8;
#endif
}

/// The number of bytes in front of the first at which copying must stop and look; 16 when there is none.
///
/// It stops at everything up to CR (which is NUL, TAB, LF, CR, and control bytes that then go on as they are), at
/// quotes and at backslashes.
inline unsigned plain_bytes(sixteen text)
{
    const auto stops = reinterpret_cast<two_halves>((text <= '\r') | (text == '"') | (text == '\\'));
    if (__builtin_expect(stops[0] != 0, 1))
        return zero_bytes_before(stops[0]);
    return stops[1] != 0 ? 8 + zero_bytes_before(stops[1]) : 16;
}

/// Whether sixteen bytes can be read without touching the next page, which need not be ours.
inline bool sixteen_in_page(const char* in)
{
    return (reinterpret_cast<std::uintptr_t>(in) & 0xFFF) <= 0x1000 - sizeof(sixteen);
}

inline escaped copy_escaped(const char* in, char* out, const char* limit)
{
    do {
        if (__builtin_expect(sixteen_in_page(in), 1)) {
            sixteen text;
            std::memcpy(&text, in, sizeof text);
            std::memcpy(out, &text, sizeof text);
            const unsigned plain = plain_bytes(text);
            in += plain;
            out += plain;
            if (plain == sizeof text)
                continue;
        }
        if (__builtin_expect(*in == '\0', 1))
            return {nullptr, out};
        out = put_escaped(out, *in++);
    } while (limit - out >= escape_stride);
    return {in, out};
}

#endif

} // namespace lumo
