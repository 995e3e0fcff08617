#include "selection.h"

#include "schema.h"

#include "store/figures.h"
#include "store/members.h"

#include <algorithm>

namespace store::sqlite {

namespace {

int64_t id_of(Database& database, const char* statement, const std::string& text)
{
    Statement find(database, statement);
    return find.with(std::string_view(text)).step() ? find.integer(0) : -1;
}

struct Range
{
    int64_t first, last;
};

// Ids of the blocks that may hold events of the period, neighbours joined.
std::vector<Range> ranges_of(Database& database, Seconds from, Seconds to)
{
    std::vector<Range> ranges;
    Statement blocks(database, "SELECT block FROM blocks WHERE last>=? AND first<? ORDER BY block");
    blocks.with(from, to);
    while (blocks.step()) {
        int64_t first = blocks.integer(0) << g_block_bits, last = first + (1 << g_block_bits) - 1;
        if (!ranges.empty() && ranges.back().last + 1 == first)
            ranges.back().last = last;
        else
            ranges.push_back({first, last});
    }
    return ranges;
}

void walk(Statement& rows, const Selection& selection, bool with_members, const UseEvent& use)
{
    EventOnTheWay event;
    FactFilter fact(selection.fact());
    while (rows.step()) {
        event.kind = selection.find(rows.integer(2));
        if (event.kind == nullptr || (fact && !fact.admits(rows.text(4))))
            continue;
        event.id = rows.integer(0);
        event.installation = rows.integer(1);
        event.logged_at = rows.integer(3);
        if (with_members)
            event.members = rows.text(4);
        use(event);
    }
}

} // namespace

Selection::Selection(Database& database, const Query& query)
    : from(std::clamp(query.from, g_first_second, g_end_second)),
      to(std::clamp(query.to, from, g_end_second)),
      first_day(day_of(from + 86399)),
      end_day(day_of(to)),
      m_has_name(query.name.has_value()),
      m_fact(query.fact)
{
    const char* find_text = "SELECT id FROM texts WHERE text=?";
    m_application = query.application ? id_of(database, find_text, *query.application) : 0;
    int64_t version = query.version ? id_of(database, find_text, *query.version) : 0;
    int64_t name = query.name ? id_of(database, find_text, *query.name) : 0;
    if (query.installation)
        m_installation = id_of(database, "SELECT id FROM installations WHERE text=?", *query.installation);
    bool has_filter = m_application != 0 || version != 0 || query.name;
    Statement rows(database, "SELECT id, application, version, name, counted FROM kinds");
    while (rows.step()) {
        KindParts parts{rows.integer(1), rows.integer(2), rows.integer(3)};
        bool matches = (m_application == 0 || parts.application == m_application) &&
                       (version == 0 || parts.version == version) &&
                       (!query.name || parts.name == name || parts.name == g_all_names);
        if (!matches)
            continue;
        m_kinds.emplace(rows.integer(0), parts);
        if (has_filter && parts.name != g_all_names && rows.integer(0) != rows.integer(4))
            m_needs_rows = true;
    }
    m_needs_rows = m_needs_rows || m_fact || m_installation != 0 || from % 3600 != 0 || to % 3600 != 0;
}

const KindParts* Selection::find(int64_t kind) const
{
    auto known = m_kinds.find(kind);
    return known == m_kinds.end() ? nullptr : &known->second;
}

void for_each_event(Database& database, const Selection& selection, Seconds from, Seconds to, bool with_members,
                    const UseEvent& use)
{
    if (selection.installation() != 0) {
        Statement rows(database, "SELECT id, installation, kind, logged_at, members FROM events "
                                 "WHERE installation=? AND logged_at>=? AND logged_at<?");
        rows.with(selection.installation(), from, to);
        walk(rows, selection, with_members, use);
        return;
    }
    // Deliberate: "+logged_at" keeps SQLite from the other index. In the order of their ids the rows are read as they
    // lie in the file, which is faster for so many.
    Statement rows(database, "SELECT id, installation, kind, logged_at, members FROM events "
                             "WHERE id BETWEEN ? AND ? AND +logged_at>=? AND +logged_at<?");
    for (const Range& range : ranges_of(database, from, to)) {
        rows.with(range.first, range.last, from, to);
        walk(rows, selection, with_members, use);
    }
}

Texts::Texts(Database& database) : m_find(database, "SELECT text FROM texts WHERE id=?") {}

const std::string& Texts::operator[](int64_t id)
{
    auto [text, is_new] = m_texts.try_emplace(id);
    if (is_new && m_find.with(id).step())
        text->second = m_find.text(0);
    return text->second;
}

std::optional<std::string> Texts::name(int64_t id)
{
    return id == g_null_name ? std::nullopt : std::optional((*this)[id]);
}

} // namespace store::sqlite
