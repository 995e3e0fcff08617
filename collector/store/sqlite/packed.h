// What is packed into a blob: sets and lists that are read and written as a whole. Numbers are varints: seven bits a
// byte, the lowest first, the eighth bit set on all but the last.
#pragma once

#include "store/upload.h"

#include <bitset>
#include <cstdint>

namespace store::sqlite {

/// Appends a number.
void put(std::string& out, uint64_t number);
/// Takes a number from the front; 0 when nothing is left.
uint64_t take(std::string_view& from);

/// Installations whose ids agree but for the lowest twelve bits (their chunk). As a blob: up to 255 of them as two
/// bytes each, low byte first; else 512 bytes of bits.
class Bits
{
public:
    static constexpr int g_bits = 12;

    Bits() = default;
    explicit Bits(std::string_view packed) { add(packed); }
    /// Adds those of a blob, or of another set.
    void add(std::string_view packed);
    void add(const Bits& other) { m_set |= other.m_set; }
    /// True when it was not there.
    bool add(uint32_t low);
    void keep_only(const Bits& other) { m_set &= other.m_set; }
    size_t count() const { return m_set.count(); }
    std::string packed() const;

private:
    std::bitset<1 << g_bits> m_set;
};

/// Half-open ranges of line numbers, in order, that do not touch. As a blob: the gap before each and its length.
class Ranges
{
public:
    Ranges() = default;
    explicit Ranges(std::string_view packed);
    bool has(uint32_t line) const;
    /// True when it was not there.
    bool add(uint32_t line);
    struct Range
    {
        uint32_t first, end;
    };
    /// What of a range is not in here.
    std::vector<Range> missing(Range range) const;
    std::string packed() const;

private:
    std::vector<Range> m_ranges;
};

/// Lines that were told as dropped and have not come. As a blob: first, count, hour and installation of each.
struct Told
{
    uint32_t first, count;
    int64_t hour;         ///< of the receipt that told them first, in hours since 1970
    int64_t installation; ///< the id of who told them
};
std::vector<Told> unpack_told(std::string_view packed);
std::string pack_told(const std::vector<Told>& told);

/// Where the texts of uploads without a batch ended. As a blob: these, one behind the other, the latest last.
constexpr size_t g_ends = 8;
std::vector<TextEnd> unpack_ends(std::string_view packed);
std::string pack_ends(const std::vector<TextEnd>& ends);

/// How often each value of a property was met: by the value's number, 0 for all past the limit. As a blob: number and
/// count of each that was.
using Counts = std::vector<uint32_t>;
void unpack_counts(std::string_view packed, Counts& counts);
std::string pack_counts(const Counts& counts);

} // namespace store::sqlite
