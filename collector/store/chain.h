// The key of a line that came without a batch: a 64-bit hash over its file's lines up to it.
//
// It is written to stores and has to be the same from any collector and any later version, so the function below never
// changes: MurmurHash64A's steps over the bytes read in little-endian order.
#pragma once

#include <cstdint>
#include <string_view>

namespace store {

using ChainKey = uint64_t;

/// The key before the first line of a file: a hash of the sender.
ChainKey chain_begin(std::string_view sender);

/// The key of a line whose predecessor has the key `before`: two files agree in it when their non-empty lines agree up
/// to here (but for one chance in 2^64).
ChainKey chain_next(ChainKey before, std::string_view line);

/// Where a text ended that came without a batch: all that is remembered of it.
struct TextEnd
{
    uint32_t lines;  ///< non-empty ones
    uint32_t size;   ///< bytes of the last of them
    ChainKey before; ///< the key before the last line
    ChainKey key;    ///< of the last line
    bool operator==(const TextEnd&) const = default;
};

/// Whether a text begins with the one that ended there. `line` is its line number `end.lines`, counted from 1, and
/// `before` the key before it. Where they are not of one size the earlier text ended inside the line.
bool begins_with(const TextEnd& end, ChainKey before, std::string_view line);

} // namespace store
