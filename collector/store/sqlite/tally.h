// Counting events and different installations, by what a question groups them by.
#pragma once

#include "selection.h"

namespace store::sqlite {

/// A set of installations.
class Installations
{
public:
    void add(int64_t installation);
    void add(int64_t chunk, std::string_view bits) { m_chunks[chunk].add(bits); }
    uint64_t count() const;
    uint64_t count_common(const Installations& other) const;

private:
    std::unordered_map<int64_t, Bits> m_chunks;
};

struct Tally
{
    uint64_t events = 0;
    Installations installations;
};

/// What events are grouped by: from a kind and the time where its hour or day begins. Rollups give hours where a group
/// depends on the hour.
using Group = std::function<int64_t(const KindParts& kind, Seconds at)>;

struct Grouping
{
    Group group;
    bool by_name = false; ///< the group depends on the kind's name
    bool by_hour = false; ///< ... or on the hour, not only on the day
};

using Tallies = std::unordered_map<int64_t, Tally>;

/// Counts what the selection means, from rollups where they know it and from rows where they do not.
Tallies tally(Database& database, const Selection& selection, const Grouping& grouping);

} // namespace store::sqlite
