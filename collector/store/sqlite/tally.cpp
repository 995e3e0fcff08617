#include "tally.h"

namespace store::sqlite {

namespace {

class Counting
{
public:
    Counting(Database& database, const Selection& selection, const Grouping& grouping)
        : m_database(database),
          m_selection(selection),
          m_grouping(grouping),
          m_by_name(grouping.by_name || selection.has_name())
    {}

    Tallies run()
    {
        if (m_selection.needs_rows()) {
            rows(m_selection.from, m_selection.to, true);
            return std::move(m_tallies);
        }
        hours();
        if (m_grouping.by_hour)
            active_in_hours(m_selection.from, m_selection.to);
        else
            active_in_days();
        return std::move(m_tallies);
    }

private:
    Tally& at(const KindParts& kind, Seconds at) { return m_tallies[m_grouping.group(kind, at)]; }

    void hours()
    {
        Statement hours(m_database, "SELECT hour, kind, events FROM hours WHERE hour>=? AND hour<?");
        hours.with(hour_of(m_selection.from), hour_of(m_selection.to));
        while (hours.step()) {
            if (const KindParts* kind = m_selection.find(hours.integer(1)))
                at(*kind, hours.integer(0) * 3600).events += static_cast<uint64_t>(hours.integer(2));
        }
    }

    // Sets are kept for each name by the day alone; by the hour for all names together.
    void active_in_hours(Seconds from, Seconds to)
    {
        if (m_by_name) {
            rows(from, to, false);
            return;
        }
        Statement sets(m_database, "SELECT hour, kind, chunk, bits FROM active_hours WHERE hour>=? AND hour<?");
        sets.with(hour_of(from), hour_of(to));
        add_sets(sets, 3600);
    }

    void active_in_days()
    {
        Statement sets(m_database, "SELECT day, kind, chunk, bits FROM active_days WHERE day>=? AND day<?");
        sets.with(m_selection.first_day, m_selection.end_day);
        add_sets(sets, 86400);
        m_selection.for_each_edge([this](Seconds from, Seconds to) { active_in_hours(from, to); });
    }

    void add_sets(Statement& sets, Seconds span)
    {
        while (sets.step()) {
            const KindParts* kind = m_selection.find(sets.integer(1));
            if (kind != nullptr && m_by_name == (kind->name != g_all_names))
                at(*kind, sets.integer(0) * span).installations.add(sets.integer(2), sets.text(3));
        }
    }

    void rows(Seconds from, Seconds to, bool with_events)
    {
        for_each_event(m_database, m_selection, from, to, false, [&](const EventOnTheWay& event) {
            Tally& tally = at(*event.kind, hour_of(event.logged_at) * 3600);
            tally.events += with_events;
            tally.installations.add(event.installation);
        });
    }

    Database& m_database;
    const Selection& m_selection;
    const Grouping& m_grouping;
    const bool m_by_name;
    Tallies m_tallies;
};

} // namespace

void Installations::add(int64_t installation)
{
    m_chunks[installation >> Bits::g_bits].add(static_cast<uint32_t>(installation & ((1 << Bits::g_bits) - 1)));
}

uint64_t Installations::count() const
{
    uint64_t count = 0;
    for (const auto& chunk : m_chunks)
        count += chunk.second.count();
    return count;
}

uint64_t Installations::count_common(const Installations& other) const
{
    uint64_t count = 0;
    for (const auto& [chunk, bits] : m_chunks) {
        auto same = other.m_chunks.find(chunk);
        if (same == other.m_chunks.end())
            continue;
        Bits common = bits;
        common.keep_only(same->second);
        count += common.count();
    }
    return count;
}

Tallies tally(Database& database, const Selection& selection, const Grouping& grouping)
{
    return Counting(database, selection, grouping).run();
}

} // namespace store::sqlite
