#include "chain.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace store {

namespace {

constexpr uint64_t g_multiplier = 0xc6a4a7935bd1e995;

// One load where there are eight bytes: every byte of every upload goes through here.
uint64_t little_endian(const char* bytes, size_t count)
{
    uint64_t word = 0;
    memcpy(&word, bytes, count);
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

uint64_t mixed(uint64_t word)
{
    word *= g_multiplier;
    word ^= word >> 47;
    return word * g_multiplier;
}

uint64_t murmur(std::string_view text, uint64_t seed)
{
    uint64_t hash = seed ^ (text.size() * g_multiplier);
    size_t at = 0;
    for (; at + 8 <= text.size(); at += 8)
        hash = (hash ^ mixed(little_endian(text.data() + at, 8))) * g_multiplier;
    if (at < text.size())
        hash = (hash ^ little_endian(text.data() + at, text.size() - at)) * g_multiplier;
    hash ^= hash >> 47;
    hash *= g_multiplier;
    return hash ^ (hash >> 47);
}

} // namespace

ChainKey chain_begin(std::string_view sender)
{
    return murmur(sender, 0);
}

ChainKey chain_next(ChainKey before, std::string_view line)
{
    return murmur(line, before);
}

bool begins_with(const TextEnd& end, ChainKey before, std::string_view line)
{
    return before == end.before && line.size() >= end.size && chain_next(before, line.substr(0, end.size)) == end.key;
}

} // namespace store
