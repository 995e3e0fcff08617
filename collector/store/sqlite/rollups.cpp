#include "rollups.h"

namespace store::sqlite {

namespace {

constexpr size_t g_most_rows = 20000; // of each table that stay in memory between groups

} // namespace

size_t Rollups::PlaceHash::operator()(const Place& place) const
{
    uint64_t hash = static_cast<uint64_t>(place.span) * 0x9E3779B97F4A7C15 ^ static_cast<uint64_t>(place.kind);
    hash = (hash ^ hash >> 29) * 0xBF58476D1CE4E5B9 ^ static_cast<uint64_t>(place.property);
    hash = (hash ^ hash >> 32) * 0x94D049BB133111EB ^ (static_cast<uint64_t>(place.value) << 32 | place.chunk);
    hash *= 0x9E3779B97F4A7C15;
    return hash ^ hash >> 31;
}

Rollups::Rollups(Database& database, Dictionary& dictionary)
    : m_dictionary(dictionary),
      m_find_hour_bits(database, "SELECT bits FROM active_hours WHERE hour=? AND kind=? AND chunk=?"),
      m_find_day_bits(database, "SELECT bits FROM active_days WHERE day=? AND kind=? AND chunk=?"),
      m_find_fact_bits(database,
                       "SELECT bits FROM fact_days WHERE day=?1 AND kind=?2 AND chunk=?3 AND property=?4 AND value=?5"),
      m_find_counts(database, "SELECT counts FROM property_days WHERE day=? AND kind=? AND property=?"),
      m_put_hour(database, "INSERT INTO hours(hour, kind, events) VALUES(?, ?, ?) ON CONFLICT DO UPDATE "
                           "SET events=events+excluded.events"),
      m_put_hour_bits(database, "REPLACE INTO active_hours(hour, kind, chunk, bits) VALUES(?, ?, ?, ?)"),
      m_put_day_bits(database, "REPLACE INTO active_days(day, kind, chunk, bits) VALUES(?, ?, ?, ?)"),
      m_put_fact_bits(database,
                      "REPLACE INTO fact_days(day, kind, chunk, bits, property, value) VALUES(?, ?, ?, ?, ?, ?)"),
      m_put_counts(database, "REPLACE INTO property_days(day, kind, property, counts) VALUES(?, ?, ?, ?)"),
      m_put_loss(database, "INSERT INTO losses(hour, installation, rejects, dropped) VALUES(?, ?, ?, ?) ON CONFLICT DO "
                           "UPDATE SET rejects=rejects+excluded.rejects, dropped=dropped+excluded.dropped")
{}

void Rollups::clear()
{
    m_hours.clear();
    m_active_hours = {};
    m_active_days = {};
    m_facts = {};
    m_counts = {};
    m_losses.clear();
    m_changed_bytes = 0;
}

// Nothing waits to be written when this is called.
void Rollups::trim()
{
    for (Table<Bits>* table : {&m_active_hours, &m_active_days, &m_facts}) {
        if (table->rows.size() > g_most_rows)
            *table = {};
    }
    if (m_counts.rows.size() > g_most_rows / 4)
        m_counts = {};
}

template <class Cell>
void Rollups::touch(Table<Cell>& table, std::pair<const Place, Row<Cell>>& row, size_t bytes)
{
    if (row.second.is_changed)
        return;
    row.second.is_changed = true;
    table.changed.push_back(&row);
    m_changed_bytes += bytes;
}

std::pair<const Rollups::Place, Rollups::Row<Bits>>& Rollups::bits_at(Table<Bits>& table, Statement& find,
                                                                      const Place& place)
{
    auto [row, is_new] = table.rows.try_emplace(place);
    if (is_new) {
        bool is_fact = place.property != 0;
        is_fact ? find.with(place.span, place.kind, int64_t(place.chunk), place.property, int64_t(place.value))
                : find.with(place.span, place.kind, int64_t(place.chunk));
        if (find.step())
            row->second.cell.add(find.text(0));
    }
    return *row;
}

void Rollups::mark(Table<Bits>& table, Statement& find, Place place, int64_t installation)
{
    place.chunk = static_cast<uint32_t>(installation >> Bits::g_bits);
    auto& row = bits_at(table, find, place);
    if (row.second.cell.add(static_cast<uint32_t>(installation & ((1 << Bits::g_bits) - 1))))
        touch(table, row, sizeof(Bits));
}

std::pair<const Rollups::Place, Rollups::Row<Counts>>& Rollups::counts_at(const Place& place)
{
    auto [row, is_new] = m_counts.rows.try_emplace(place);
    if (is_new && m_find_counts.with(place.span, place.kind, place.property).step())
        unpack_counts(m_find_counts.text(0), row->second.cell);
    return *row;
}

// Without a property: one more past the limit of an event's.
void Rollups::count(const Kind& kind, int64_t day, int64_t name, const Property* property, int64_t installation)
{
    bool is_fact = name == g_all_names;
    auto key = property != nullptr ? std::optional(property->key) : std::nullopt;
    KnownProperty& known = m_dictionary.property(kind.counted_application, name, key);
    uint32_t number = property != nullptr ? m_dictionary.value(known, property->value) : 0;
    Place place{day, is_fact ? kind.all_names : kind.counted, known.id, 0, 0};
    auto& row = counts_at(place);
    Counts& counts = row.second.cell;
    if (number >= counts.size())
        counts.resize(number + 1);
    ++counts[number];
    touch(m_counts, row, counts.size() * 3);
    if (is_fact) {
        place.value = number;
        mark(m_facts, m_find_fact_bits, place, installation);
    }
}

void Rollups::add(const Event& event, const Property* properties, const Kind& kind, int64_t installation)
{
    int64_t hour = hour_of(event.logged_at), day = day_of(event.logged_at);
    uint64_t& events = m_hours[{hour, kind.counted, 0, 0, 0}];
    m_changed_bytes += events == 0 ? sizeof(Place) + sizeof events : 0;
    ++events;
    mark(m_active_hours, m_find_hour_bits, {hour, kind.all_names, 0, 0, 0}, installation);
    mark(m_active_days, m_find_day_bits, {day, kind.all_names, 0, 0, 0}, installation);
    mark(m_active_days, m_find_day_bits, {day, kind.counted, 0, 0, 0}, installation);
    for (const Property* property = properties; property != properties + event.properties; ++property) {
        count(kind, day, kind.counted_name, property, installation);
        if (property->is_fact)
            count(kind, day, g_all_names, property, installation);
    }
    for (uint32_t i = 0; i < event.other_properties; ++i)
        count(kind, day, kind.counted_name, nullptr, installation);
}

void Rollups::add_loss(int64_t hour, int64_t installation, int64_t rejects, int64_t dropped)
{
    Loss& loss = m_losses[{hour, installation}];
    loss.rejects += rejects;
    loss.dropped += dropped;
    m_changed_bytes += sizeof loss;
}

void Rollups::flush_hours()
{
    for (const auto& [place, events] : m_hours)
        m_put_hour.with(place.span, place.kind, static_cast<int64_t>(events)).run();
    m_hours.clear();
}

void Rollups::flush_bits(Table<Bits>& table, Statement& put_row, bool has_property)
{
    for (auto* row : table.changed) {
        const Place& place = row->first;
        std::string bits = row->second.cell.packed();
        has_property ? put_row.with(place.span, place.kind, int64_t(place.chunk), blob(bits), place.property,
                                    int64_t(place.value))
                     : put_row.with(place.span, place.kind, int64_t(place.chunk), blob(bits));
        put_row.run();
        row->second.is_changed = false;
    }
    table.changed.clear();
}

void Rollups::flush_counts()
{
    for (auto* row : m_counts.changed) {
        std::string counts = pack_counts(row->second.cell);
        m_put_counts.with(row->first.span, row->first.kind, row->first.property, blob(counts)).run();
        row->second.is_changed = false;
    }
    m_counts.changed.clear();
}

void Rollups::flush_losses()
{
    for (const auto& [place, loss] : m_losses)
        m_put_loss.with(place.first, place.second, loss.rejects, loss.dropped).run();
    m_losses.clear();
}

void Rollups::flush()
{
    flush_hours();
    flush_bits(m_active_hours, m_put_hour_bits, false);
    flush_bits(m_active_days, m_put_day_bits, false);
    flush_bits(m_facts, m_put_fact_bits, true);
    flush_counts();
    flush_losses();
    m_changed_bytes = 0;
}

} // namespace store::sqlite
