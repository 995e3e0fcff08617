// Inner loops that have a faster form on some processors.
//
// For the library's own use, not exported. Each has a plain form, ending in _plain, that is correct everywhere and says
// what the result is; the other form gives the same result by whatever the processor offers, and is the plain one where
// there is nothing. All processor-specific instructions of the library stand in simd.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumo::simd {

/// How many bytes beyond its result percent_encode may overwrite.
inline constexpr std::size_t percent_slack = 64;

/// Percent-encodes `size` bytes to `out`, which has room for three times as many and percent_slack more. A byte whose
/// entry in `unsafe`, 256 long, is not 0 becomes "%" and two lower-case digits. Returns the end.
char* percent_encode(const char* in, std::size_t size, char* out, const std::uint8_t* unsafe);
/// The same without instructions of one processor alone; also what the faster form is tested against.
char* percent_encode_plain(const char* in, std::size_t size, char* out, const std::uint8_t* unsafe);

/// Counts the bytes whose entry in `unsafe` is not 0.
std::size_t count_unsafe(const char* in, std::size_t size, const std::uint8_t* unsafe);
/// The same without instructions of one processor alone; also what the faster form is tested against.
std::size_t count_unsafe_plain(const char* in, std::size_t size, const std::uint8_t* unsafe);

} // namespace lumo::simd
