#include "packed.h"

#include <algorithm>
#include <cstring>

namespace store::sqlite {

namespace {

constexpr size_t g_bytes = (1 << Bits::g_bits) / 8;

unsigned byte(std::string_view text, size_t at)
{
    return static_cast<unsigned char>(text[at]);
}

} // namespace

void put(std::string& out, uint64_t number)
{
    for (; number > 0x7f; number >>= 7)
        out += static_cast<char>(number | 0x80);
    out += static_cast<char>(number);
}

uint64_t take(std::string_view& from)
{
    uint64_t number = 0;
    for (int shift = 0; !from.empty() && shift < 64; shift += 7) {
        unsigned char next = static_cast<unsigned char>(from[0]);
        from.remove_prefix(1);
        number |= static_cast<uint64_t>(next & 0x7f) << shift;
        if (next < 0x80)
            break;
    }
    return number;
}

void Bits::add(std::string_view packed)
{
    if (packed.size() == g_bytes) {
        std::bitset<1 << g_bits> other;
        static_assert(sizeof other == g_bytes);
        memcpy(&other, packed.data(), g_bytes);
        m_set |= other;
        return;
    }
    for (size_t i = 0; i + 1 < packed.size(); i += 2)
        m_set.set((byte(packed, i) | byte(packed, i + 1) << 8) & ((1 << g_bits) - 1));
}

bool Bits::add(uint32_t low)
{
    bool is_new = !m_set[low];
    m_set[low] = true;
    return is_new;
}

std::string Bits::packed() const
{
    if (count() >= g_bytes / 2)
        return std::string(reinterpret_cast<const char*>(&m_set), g_bytes);
    std::string out;
    for (size_t i = m_set._Find_first(); i < m_set.size(); i = m_set._Find_next(i)) {
        out += static_cast<char>(i & 0xff);
        out += static_cast<char>(i >> 8);
    }
    return out;
}

Ranges::Ranges(std::string_view packed)
{
    uint32_t at = 0;
    while (!packed.empty()) {
        uint32_t first = at + static_cast<uint32_t>(take(packed));
        at = first + static_cast<uint32_t>(take(packed));
        m_ranges.push_back({first, at});
    }
}

bool Ranges::has(uint32_t line) const
{
    auto after = std::upper_bound(m_ranges.begin(), m_ranges.end(), line,
                                  [](uint32_t value, const Range& range) { return value < range.first; });
    return after != m_ranges.begin() && line < std::prev(after)->end;
}

bool Ranges::add(uint32_t line)
{
    auto after = std::upper_bound(m_ranges.begin(), m_ranges.end(), line,
                                  [](uint32_t value, const Range& range) { return value < range.first; });
    bool has_before = after != m_ranges.begin();
    if (has_before && line < std::prev(after)->end)
        return false;
    bool joins_before = has_before && std::prev(after)->end == line;
    bool joins_after = after != m_ranges.end() && after->first == line + 1;
    if (joins_before && joins_after) {
        std::prev(after)->end = after->end;
        m_ranges.erase(after);
    } else if (joins_before) {
        std::prev(after)->end = line + 1;
    } else if (joins_after) {
        after->first = line;
    } else {
        m_ranges.insert(after, {line, line + 1});
    }
    return true;
}

std::vector<Ranges::Range> Ranges::missing(Range range) const
{
    std::vector<Range> gaps;
    for (const Range& there : m_ranges) {
        if (there.first > range.first && there.first < range.end)
            gaps.push_back({range.first, there.first});
        range.first = std::max(range.first, std::min(there.end, range.end));
    }
    if (range.first < range.end)
        gaps.push_back(range);
    return gaps;
}

std::string Ranges::packed() const
{
    std::string out;
    uint32_t at = 0;
    for (const Range& range : m_ranges) {
        put(out, range.first - at);
        put(out, range.end - range.first);
        at = range.end;
    }
    return out;
}

std::vector<Told> unpack_told(std::string_view packed)
{
    std::vector<Told> told;
    while (!packed.empty()) {
        Told piece;
        piece.first = static_cast<uint32_t>(take(packed));
        piece.count = static_cast<uint32_t>(take(packed));
        piece.hour = static_cast<int64_t>(take(packed));
        piece.installation = static_cast<int64_t>(take(packed));
        told.push_back(piece);
    }
    return told;
}

std::string pack_told(const std::vector<Told>& told)
{
    std::string out;
    for (const Told& piece : told) {
        put(out, piece.first);
        put(out, piece.count);
        put(out, static_cast<uint64_t>(piece.hour));
        put(out, static_cast<uint64_t>(piece.installation));
    }
    return out;
}

std::vector<TextEnd> unpack_ends(std::string_view packed)
{
    std::vector<TextEnd> ends(packed.size() / sizeof(TextEnd));
    if (!ends.empty())
        memcpy(ends.data(), packed.data(), ends.size() * sizeof(TextEnd));
    return ends;
}

std::string pack_ends(const std::vector<TextEnd>& ends)
{
    return std::string(reinterpret_cast<const char*>(ends.data()), ends.size() * sizeof(TextEnd));
}

void unpack_counts(std::string_view packed, Counts& counts)
{
    while (!packed.empty()) {
        size_t number = take(packed);
        if (number >= counts.size())
            counts.resize(number + 1);
        counts[number] += static_cast<uint32_t>(take(packed));
    }
}

std::string pack_counts(const Counts& counts)
{
    std::string out;
    for (size_t number = 0; number < counts.size(); ++number) {
        if (counts[number] == 0)
            continue;
        put(out, number);
        put(out, counts[number]);
    }
    return out;
}

} // namespace store::sqlite
