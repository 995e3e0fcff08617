// Which lines the spool holds, so that a repetition of what has not left it yet is not kept twice.
//
// Lines of batches are told by spans of numbers; a text without a batch by its last line, whose chained hash stands for
// all lines before it: one entry for an upload, whatever its size. What this lets through again (a shorter beginning of
// a text) the cluster's own keys make one.
#pragma once

#include "block.h"

#include <span>
#include <unordered_map>

namespace store::spool {

/// Counted up by one for each transaction of the spool.
using Commit = uint64_t;

/// Lines [first, first + count) of what `id` stands for.
struct Entry
{
    std::array<unsigned char, 16> id{};
    uint64_t first = 0, count = 0;
};

/// One thread at a time.
class Known
{
public:
    struct Answer
    {
        std::vector<bool> is_known; ///< of the pieces
        Commit latest = 0;          ///< of those that know them; 0: none is known
    };

    /// Tells which pieces of an upload are there, and notes the others.
    /// @param pieces  as clickhouse::encode made them
    /// @param noted  gets the new entries
    Answer take(const Upload& upload, std::span<const clickhouse::Piece> pieces, Commit commit,
                std::vector<Entry>& noted);
    void add(const Entry& entry, Commit commit);
    void remove(std::span<const Entry> entries);

private:
    struct Span
    {
        uint64_t first, count;
        Commit commit;
    };
    struct Hash
    {
        size_t operator()(const std::array<unsigned char, 16>& id) const;
    };

    Commit find(const std::array<unsigned char, 16>& id, uint64_t number) const;
    size_t known_lines(const Upload& upload, Answer& answer) const;
    void take_batch(const Upload& upload, std::span<const clickhouse::Piece> pieces, Answer& answer,
                    std::vector<Entry>& found) const;

    /// In order of `first`; no two overlap.
    std::unordered_map<std::array<unsigned char, 16>, std::vector<Span>, Hash> m_spans;
};

} // namespace store::spool
