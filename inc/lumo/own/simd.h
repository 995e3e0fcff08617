// Inner loops that have a faster form on some processors.
//
// For the library's own use, not exported. The plain form runs everywhere and defines the result; the others give the
// same result with instructions that only some processors have. All processor-specific instructions of this layer and
// those above are in simd.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumo::simd {

/// A set of bytes that holds all control bytes (below 0x20) and all from 0x80 up, and any others.
struct byte_class
{
    bool holds[256];
    /// Indexed by the low four bits of a byte; bit N is set when the byte with high four bits N belongs to the class.
    std::uint8_t rows[16];
};

/// Makes the class whose bytes below 0x80 are those that `holds` names.
template <class Holds>
constexpr byte_class make_byte_class(Holds holds)
{
    byte_class made{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        made.holds[byte] = byte < 0x20 || byte >= 0x80 || holds(static_cast<char>(byte));
        if (byte < 0x80 && made.holds[byte])
            made.rows[byte & 15] = static_cast<std::uint8_t>(made.rows[byte & 15] | 1 << (byte >> 4));
    }
    return made;
}

/// How many bytes beyond its result percent_encode may overwrite.
inline constexpr std::size_t percent_slack = 64;

/// One implementation of the loops. Every form gives the same results; which is the fastest depends on the processor.
struct form
{
    const char* name; ///< for tests and the bench to show
    bool usable;      ///< whether this processor has what it takes

    /// Percent-encodes `size` bytes to `out`, which has room for three times as many and percent_slack more. A byte of
    /// `unsafe` becomes "%" and two lower-case digits. Returns the end.
    char* (*percent_encode)(const char* in, std::size_t size, char* out, const byte_class& unsafe);

    /// Counts the bytes of the class among `size` bytes.
    std::size_t (*count)(const char* in, std::size_t size, const byte_class& counted);
};

/// All forms, the fastest first; the last is the plain one, which is always usable.
const form* forms();

/// The first that is usable here; chosen once per process. Any thread.
const form& best();

/// A pause of some ten nanoseconds for a thread that polls a lock. Without it each poll takes the lock's cache line
/// away from the holder, and cycles from the core's other hardware thread.
void rest();

} // namespace lumo::simd
