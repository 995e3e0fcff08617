// Copying text into a JSON string.
//
// For the library's own use. Inline, because it is the inner loop of every name and every value: each step copies
// sixteen bytes and finds, in the same sixteen, the end of the text and the first character to escape. Written with the
// compiler's vector types, which compile for every processor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Forced, since the compiler alone does not inline the larger of these functions, and a call for each member costs
// time.
#define LUMO_ALWAYS_INLINE __attribute__((always_inline))

namespace lumo {

/// How far a copy came.
struct escaped
{
    const char* rest; ///< what is left to copy; null when nothing is
    std::size_t size; ///< bytes in the buffer by now
};

/// The room that copy_escaped needs to begin with, and below which it stops and asks for more.
inline constexpr std::size_t escape_stride = 32;

/// Writes one character: quote, backslash, LF, CR and TAB behind a backslash, every other as it is. Returns the size.
inline std::size_t put_escaped(char* out, char c)
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
        return 1;
    }
    out[0] = '\\';
    out[1] = c;
    return 2;
}

/// Copies a NUL-terminated text, escaped, into a buffer of `room` bytes that holds `size` already.
///
/// Stops at the end of the text or when there is room for fewer than escape_stride bytes. Behind the end of the copy
/// anything may be written.
inline escaped copy_escaped_plain(const char* text, char* buffer, std::size_t size, std::size_t room)
{
    do {
        if (*text == '\0')
            return {nullptr, size};
        size += put_escaped(buffer + size, *text++);
    } while (size + escape_stride <= room);
    return {text, size};
}

/// What copy_short returns when a text has sixteen bytes or more, or one to escape.
inline constexpr std::size_t short_text = 16;

// A load of sixteen bytes may read past the end of a text, though never into another page. That is harmless, but
// sanitizers report it, so their builds take the plain form.
#if !defined(__GNUC__) || defined(ANALYTICS_SANITIZED)

inline escaped copy_escaped(const char* text, char* buffer, std::size_t size, std::size_t room)
{
    return copy_escaped_plain(text, buffer, size, room);
}

inline std::size_t copy_short(const char*, char*)
{
    return short_text;
}

#else

/// Sixteen bytes, and the same as two numbers.
using sixteen = unsigned char __attribute__((vector_size(16)));
using two_halves = std::uint64_t __attribute__((vector_size(16)));

/// The number of bits before the first byte in memory that is not zero; 64 when all are zero.
inline unsigned bits_before(std::uint64_t half)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    half = __builtin_bswap64(half);
#endif
    return half != 0 ? static_cast<unsigned>(__builtin_ctzll(half)) : 64;
}

/// The number of bytes before the first one that cannot simply be copied; 16 when there is none.
///
/// That is every byte up to CR (NUL, TAB, LF and CR among them; the others are then copied unchanged), quotes and
/// backslashes. The text ab"c stops at its third byte:
///
///     bytes   61 62 22 63 00 ...
///     stops   00 00 FF 00 FF ...    bits_before() gives 16 for the first half, so two bytes are plain
inline unsigned plain_bytes(sixteen bytes)
{
    const auto stops = reinterpret_cast<two_halves>((bytes <= '\r') | (bytes == '"') | (bytes == '\\'));
    const unsigned low = bits_before(stops[0]), high = bits_before(stops[1]);
    return (low < 64 ? low : 64 + high) / 8;
}

/// Whether sixteen bytes can be read without touching the next page, which may not be mapped. Pages have 4,096 bytes or
/// a multiple of that.
inline bool sixteen_in_page(const char* text)
{
    return (reinterpret_cast<std::uintptr_t>(text) & 0xFFF) <= 0x1000 - sizeof(sixteen);
}

LUMO_ALWAYS_INLINE inline escaped copy_escaped(const char* text, char* buffer, std::size_t size, std::size_t room)
{
    do {
        if (__builtin_expect(sixteen_in_page(text), 1)) {
            sixteen bytes;
            std::memcpy(&bytes, text, sizeof bytes);
            std::memcpy(buffer + size, &bytes, sizeof bytes);
            const unsigned plain = plain_bytes(bytes);
            text += plain;
            size += plain;
            if (plain == sizeof bytes)
                continue;
        }
        if (__builtin_expect(*text == '\0', 1))
            return {nullptr, size};
        size += put_escaped(buffer + size, *text++);
    } while (size + escape_stride <= room);
    return {text, size};
}

/// Copies a text that has fewer than sixteen bytes, and none to escape, to `out`, where there is room for sixteen.
/// Returns its length, or short_text.
LUMO_ALWAYS_INLINE inline std::size_t copy_short(const char* text, char* out)
{
    if (__builtin_expect(!sixteen_in_page(text), 0))
        return short_text;
    sixteen bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    std::memcpy(out, &bytes, sizeof bytes);
    const unsigned plain = plain_bytes(bytes);
    return plain < sizeof bytes && text[plain] == '\0' ? plain : short_text;
}

#endif

} // namespace lumo
