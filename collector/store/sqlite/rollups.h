// The counts that pages are drawn from, for the side that writes: summed in memory within a group of uploads and
// written once at its end. Sets and value counts stay in memory between groups, as the next group mostly changes the
// same ones.
#pragma once

#include "dictionary.h"
#include "packed.h"

#include <list>

namespace store::sqlite {

class Rollups
{
public:
    Rollups(Database& database, Dictionary& dictionary);

    void clear();
    void trim();
    /// About how many bytes of changes wait to be written.
    size_t changed_bytes() const { return m_changed_bytes; }

    void add(const Event& event, const Property* properties, const Kind& kind, int64_t installation);
    void add_loss(int64_t hour, int64_t installation, int64_t rejects, int64_t dropped);
    /// Writes what changed.
    void flush();

private:
    /// Where a row of a rollup stands: the columns of its key in their order, 0 for those it has not.
    struct Place
    {
        int64_t span = 0, kind = 0, property = 0;
        uint32_t value = 0, chunk = 0;
        bool operator==(const Place&) const = default;
    };
    struct PlaceHash
    {
        size_t operator()(const Place& place) const;
    };
    template <class Cell>
    struct Row
    {
        Cell cell;
        bool is_changed = false;
    };
    /// The rows of one table that are in memory.
    template <class Cell>
    struct Table
    {
        std::unordered_map<Place, Row<Cell>, PlaceHash> rows;
        std::vector<std::pair<const Place, Row<Cell>>*> changed;
    };

    template <class Cell>
    void touch(Table<Cell>& table, std::pair<const Place, Row<Cell>>& row, size_t bytes);
    std::pair<const Place, Row<Bits>>& bits_at(Table<Bits>& table, Statement& find, const Place& place);
    std::pair<const Place, Row<Counts>>& counts_at(const Place& place);
    void mark(Table<Bits>& table, Statement& find, Place place, int64_t installation);
    void count(const Kind& kind, int64_t day, int64_t name, const Property* property, int64_t installation);
    void flush_hours();
    void flush_bits(Table<Bits>& table, Statement& put_row, bool has_property);
    void flush_counts();
    void flush_losses();

    Dictionary& m_dictionary;
    Statement m_find_hour_bits, m_find_day_bits, m_find_fact_bits, m_find_counts, m_put_hour, m_put_hour_bits,
        m_put_day_bits, m_put_fact_bits, m_put_counts, m_put_loss;
    std::unordered_map<Place, uint64_t, PlaceHash> m_hours;
    Table<Bits> m_active_hours, m_active_days, m_facts;
    Table<Counts> m_counts;
    struct Loss
    {
        int64_t rejects = 0, dropped = 0;
    };
    std::map<std::pair<int64_t, int64_t>, Loss> m_losses;
    size_t m_changed_bytes = 0;
};

/// The number of the hour or day that a time lies in, also before 1970.
inline int64_t hour_of(Seconds at)
{
    return at >= 0 ? at / 3600 : -((3599 - at) / 3600);
}
inline int64_t day_of(Seconds at)
{
    return at >= 0 ? at / 86400 : -((86399 - at) / 86400);
}

} // namespace store::sqlite
